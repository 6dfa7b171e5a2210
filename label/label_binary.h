#pragma once

#include <string>

#include "base/api.h"

// Bytes as text.

// Two lower-case hexadecimal digits a byte, no separators; empty for length 0.
ZORV_API std::string bytesToHexString(const unsigned char* data, unsigned long length);
