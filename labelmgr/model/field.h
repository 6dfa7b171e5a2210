#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <variant>

#include "label/label.h"

// The four fields of a file's label that users may set. The numbers are stored.
enum class Field { kOid = 0, kSid = 1, kTid = 2, kInheritFlag = 3 };

constexpr std::array<Field, 4> kFields = {Field::kOid, Field::kSid, Field::kTid, Field::kInheritFlag};

// A table with a place for each field.
template <typename Value>
class ByField {
 public:
    Value& operator[](Field field) { return values.at(static_cast<size_t>(field)); }
    const Value& operator[](Field field) const { return values.at(static_cast<size_t>(field)); }

 private:
    std::array<Value, kFields.size()> values{};
};

// OID and SID are identifiers, TID and inherit flag are numbers.
using FieldValue = std::variant<Id, uint32_t>;

FieldValue fieldOf(const Label& label, Field field);
void setField(Label& label, Field field, const FieldValue& value);

// "oid", "sid", "tid" or "inherit_flag".
const char* nameOf(Field field);
// As the tool prints it: three groups of 16 hexadecimal digits, or 8 digits.
std::string textOf(const FieldValue& value);

// A value as the store and the port's records keep it: package, file and path, or the
// number and two zeros.
using ValueNumbers = std::array<uint64_t, 3>;
ValueNumbers numbersOf(const FieldValue& value);
FieldValue fieldValueOf(Field field, const ValueNumbers& numbers);
