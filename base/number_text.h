#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

// std::stoul() as it is where an unsigned long has 64 bits, on every machine: a larger
// value converts, and is narrowed by the caller. Internal.
inline uint64_t readUnsignedLong(const std::string& text, size_t* used, int base) {
    static_assert(sizeof(unsigned long long) == sizeof(uint64_t));
    try {
        return std::stoull(text, used, base);
    } catch (const std::invalid_argument&) {
        throw std::invalid_argument("stoul");
    } catch (const std::out_of_range&) {
        throw std::out_of_range("stoul");
    }
}
