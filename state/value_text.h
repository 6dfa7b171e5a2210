#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "labelmgr/model/field.h"

// Values as a state file says them. Nothing for a text that is none.

// 1 to 16 hexadecimal digits.
std::optional<uint64_t> parseId(std::string_view text);

// OID and SID: three such numbers with "-" between them. TID: 1 to 8 digits. Inherit
// flag: 0 to 7.
std::optional<FieldValue> parseValue(Field field, std::string_view text);
