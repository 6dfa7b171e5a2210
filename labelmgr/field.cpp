#include "labelmgr/field.h"

#include <array>
#include <cinttypes>
#include <cstdio>

namespace {

Id& idOf(Label& label, Field field) {
    return field == Field::kOid ? label.oid_ : label.sid_;
}

uint32_t& numberOf(Label& label, Field field) {
    return field == Field::kTid ? label.tid_ : label.inheritFlag_;
}

bool isId(Field field) {
    return field == Field::kOid || field == Field::kSid;
}

Id toId(const FieldValue& value) {
    Id id;
    id.pkg_ = value.package;
    id.file_ = value.file;
    id.path_ = value.path;
    return id;
}

}  // namespace

FieldValue fieldOf(const Label& label, Field field) {
    Label copy = label;
    if (isId(field)) {
        const Id& id = idOf(copy, field);
        return {id.pkg_, id.file_, id.path_};
    }
    return {numberOf(copy, field), 0, 0};
}

void setField(Label& label, Field field, const FieldValue& value) {
    if (isId(field)) {
        idOf(label, field) = toId(value);
    } else {
        numberOf(label, field) = static_cast<uint32_t>(value.package);
    }
}

const char* nameOf(Field field) {
    constexpr std::array<const char*, 5> kNames = {"oid", "sid", "tid", "inherit_flag", "label"};
    return kNames.at(static_cast<size_t>(field));
}

std::string textOf(Field field, const FieldValue& value) {
    if (isId(field)) {
        return toId(value).toString();
    }
    std::array<char, 17> digits{};
    std::snprintf(digits.data(), digits.size(), "%08" PRIx64, value.package);
    return digits.data();
}
