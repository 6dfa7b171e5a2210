#include "labelmgr/model/change_kind.h"

#include <array>

namespace {

std::string withVerb(ChangeKind kind, const char* object) {
    constexpr std::array<const char*, 5> kVerbs = {"set", "del", "clear", "restore", "init"};
    return std::string(kVerbs.at(static_cast<size_t>(kind))) + "_" + object;
}

}  // namespace

std::string operationOf(ChangeKind kind, Field field) {
    return withVerb(kind, writesWholeLabel(kind) ? "label" : nameOf(field));
}

std::string packageOperationOf(ChangeKind kind) {
    return withVerb(kind, "id");
}
