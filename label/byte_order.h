#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

// The persistent forms are little-endian on every host; this is the one place that says
// so.

template <typename Unsigned>
void storeLittleEndian(unsigned char* out, Unsigned value) {
    static_assert(std::is_unsigned_v<Unsigned>);
    for (size_t i = 0; i < sizeof(Unsigned); ++i) {
        out[i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

template <typename Unsigned>
Unsigned loadLittleEndian(const unsigned char* in) {
    static_assert(std::is_unsigned_v<Unsigned>);
    Unsigned value = 0;
    for (size_t i = 0; i < sizeof(Unsigned); ++i) {
        value = static_cast<Unsigned>(value | static_cast<Unsigned>(in[i]) << (8 * i));
    }
    return value;
}
