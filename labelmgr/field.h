#pragma once

#include "cli/label_manager.h"
#include "label/label.h"

// The four fields of a file's label that users may set. The numbers are stored.
enum class Field { kOid = 0, kSid = 1, kTid = 2, kInheritFlag = 3 };

// A field's value. TID and inherit flag use the first number only.
using FieldValue = ZORV_ID;

FieldValue fieldOf(const Label& label, Field field);
void setField(Label& label, Field field, const FieldValue& value);

// "oid", "sid", "tid" or "inherit_flag".
const char* nameOf(Field field);
// As the tool prints it: three groups of 16 hexadecimal digits, or 8 digits.
std::string textOf(Field field, const FieldValue& value);
