#include "labelmgr/model/field.h"

#include "base/hexadecimal.h"

namespace {

bool isIdentifier(Field field) {
    return field == Field::kOid || field == Field::kSid;
}

}  // namespace

FieldValue fieldOf(const Label& label, Field field) {
    switch (field) {
        case Field::kOid:
            return label.oid_;
        case Field::kSid:
            return label.sid_;
        case Field::kTid:
            return label.tid_;
        case Field::kInheritFlag:
            break;
    }
    return label.inheritFlag_;
}

void setField(Label& label, Field field, const FieldValue& value) {
    if (isIdentifier(field)) {
        (field == Field::kOid ? label.oid_ : label.sid_) = std::get<Id>(value);
    } else {
        (field == Field::kTid ? label.tid_ : label.inheritFlag_) = std::get<uint32_t>(value);
    }
}

const char* nameOf(Field field) {
    constexpr std::array<const char*, kFields.size()> kNames = {"oid", "sid", "tid", "inherit_flag"};
    return kNames.at(static_cast<size_t>(field));
}

std::string textOf(const FieldValue& value) {
    constexpr size_t kDigitsOfNumber = 8;
    const Id* id = std::get_if<Id>(&value);
    return id != nullptr ? id->toString()
                         : hexadecimalOf(uint64_t{std::get<uint32_t>(value)}).substr(kDigitsOfNumber);
}

ValueNumbers numbersOf(const FieldValue& value) {
    const Id* id = std::get_if<Id>(&value);
    return id != nullptr ? ValueNumbers{id->pkg_, id->file_, id->path_}
                         : ValueNumbers{std::get<uint32_t>(value), 0, 0};
}

FieldValue fieldValueOf(Field field, const ValueNumbers& numbers) {
    if (!isIdentifier(field)) {
        return static_cast<uint32_t>(numbers[0]);
    }
    Id id;
    id.pkg_ = numbers[0];
    id.file_ = numbers[1];
    id.path_ = numbers[2];
    return id;
}
