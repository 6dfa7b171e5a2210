#pragma once

#include <string>

#include "labelmgr/files/label_bytes.h"
#include "state/json_names.h"

// A label as the tool prints it; "none" without one. Bytes that are not a label: "not a
// label: " and their hexadecimal digits.
std::string labelText(const LabelBytes& bytes);

// The same, but null without a label.
void addLabel(Json& record, const char* key, const LabelBytes& bytes);
