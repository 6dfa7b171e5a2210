#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Lower-case hexadecimal digits. Internal.

constexpr size_t kHexadecimalDigits64 = 16;

constexpr char hexadecimalDigit(unsigned int nibble) {
    return "0123456789abcdef"[nibble & 0xf];
}

// Writes a number as 16 digits, filled with zeros.
inline void writeHexadecimal(char* out, uint64_t value) {
    for (size_t i = kHexadecimalDigits64; i-- > 0; value >>= 4) {
        out[i] = hexadecimalDigit(static_cast<unsigned int>(value));
    }
}

inline std::string hexadecimalOf(uint64_t value) {
    std::string digits(kHexadecimalDigits64, '0');
    writeHexadecimal(digits.data(), value);
    return digits;
}

// Two digits a byte, no separators.
inline std::string hexadecimalOf(const unsigned char* bytes, size_t count) {
    std::string digits;
    digits.reserve(2 * count);
    for (size_t i = 0; i < count; ++i) {
        digits.push_back(hexadecimalDigit(bytes[i] >> 4U));
        digits.push_back(hexadecimalDigit(bytes[i]));
    }
    return digits;
}
