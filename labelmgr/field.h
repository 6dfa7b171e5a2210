#pragma once

#include "cli/label_manager.h"
#include "label/label.h"

// The four fields of a file's label that users may set, and the label as a whole, for which nothing is set
// but which is derived anew. The numbers are stored.
enum class Field { kOid = 0, kSid = 1, kTid = 2, kInheritFlag = 3, kWholeLabel = 4 };

constexpr Field kFields[] = {Field::kOid, Field::kSid, Field::kTid, Field::kInheritFlag};

// A field's value. TID and inherit flag use the first number only.
using FieldValue = ZORV_ID;

FieldValue fieldOf(const Label& label, Field field);
void setField(Label& label, Field field, const FieldValue& value);

// "oid", "sid", "tid", "inherit_flag" or "label".
const char* nameOf(Field field);
// As the tool prints it: three groups of 16 hexadecimal digits, or 8 digits.
std::string textOf(Field field, const FieldValue& value);
