#pragma once

#include <cstdint>
#include <string>

// Command-line words as numbers. The whole word must convert; leading blanks, a sign and,
// in base 16, a "0x" prefix are accepted as strtoul accepts them. A word that does not
// convert is reported on standard error ("Invalid argument: ..." or "Out of Range error:
// ...") and the exception goes on to the caller. No caller catches it: such a run ends
// through std::terminate.
uint64_t toUnsigned64(const std::string& word, int base);

// Deliberately keeps the low 32 bits of a larger value, before any test of its range.
uint32_t toUnsigned32(const std::string& word, int base);
