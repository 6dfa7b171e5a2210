#include "labelmgr/model/change_kind.h"

#include <array>

std::string operationOf(ChangeKind kind, Field field) {
    constexpr std::array<const char*, 5> kVerbs = {"set", "del", "clear", "restore", "init"};
    return std::string(kVerbs.at(static_cast<size_t>(kind))) + "_" +
           (writesWholeLabel(kind) ? "label" : nameOf(field));
}
