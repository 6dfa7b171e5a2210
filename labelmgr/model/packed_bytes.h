#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "label/byte_order.h"
#include "labelmgr/model/operation_error.h"

// Numbers and texts one behind the other: numbers little-endian, before each text its
// length in four bytes; or both in as few bytes as they need.

// What is read is not what was written.
class BytesDamaged : public OperationError {
 public:
    BytesDamaged() : OperationError("damaged") {}
};

// Of any one byte that differs the sum is another: FNV-1a, eight bytes at a time.
inline uint64_t checksumOf(std::string_view bytes) {
    constexpr uint64_t kPrime = 0x100000001b3;
    uint64_t sum = 0xcbf29ce484222325;
    for (; bytes.size() >= sizeof(uint64_t); bytes.remove_prefix(sizeof(uint64_t))) {
        const auto* word = reinterpret_cast<const unsigned char*>(bytes.data());
        sum = (sum ^ loadLittleEndian<uint64_t>(word)) * kPrime;
    }
    for (const char c : bytes) {
        sum = (sum ^ static_cast<unsigned char>(c)) * kPrime;
    }
    return sum;
}

template <typename Unsigned>
void addNumber(std::string& out, Unsigned value) {
    unsigned char bytes[sizeof(Unsigned)];
    storeLittleEndian(bytes, value);
    out.append(reinterpret_cast<const char*>(bytes), sizeof(bytes));
}

// Throws OperationError for 4 GiB and more.
inline void addText(std::string& out, std::string_view text) {
    if (text.size() > std::numeric_limits<uint32_t>::max()) {
        throw OperationError("a text of 4 GiB cannot be kept");
    }
    addNumber(out, static_cast<uint32_t>(text.size()));
    out.append(text);
}

// A number that is mostly small: seven bits a byte, the lowest first.
inline void addSmallNumber(std::string& out, uint64_t value) {
    for (; value >= 0x80; value >>= 7) {
        out.push_back(static_cast<char>(value | 0x80));
    }
    out.push_back(static_cast<char>(value));
}

// A text that may begin and end as another one does, without what they have in common.
inline void addTextLike(std::string& out, std::string_view other, std::string_view text) {
    const auto begin = std::mismatch(text.begin(), text.end(), other.begin(), other.end()).first;
    const auto first = static_cast<size_t>(begin - text.begin());
    other.remove_prefix(first);
    text.remove_prefix(first);
    const auto end = std::mismatch(text.rbegin(), text.rend(), other.rbegin(), other.rend()).first;
    const auto last = static_cast<size_t>(end - text.rbegin());
    text.remove_suffix(last);
    addSmallNumber(out, first);
    addSmallNumber(out, last);
    addSmallNumber(out, text.size());
    out.append(text);
}

// Reads them; the bytes must outlive it and the texts that it answers. Throws
// BytesDamaged.
class PackedReader {
 public:
    explicit PackedReader(std::string_view bytes) : rest(bytes) {}

    bool isAtEnd() const { return rest.empty(); }

    template <typename Unsigned>
    Unsigned number() {
        return loadLittleEndian<Unsigned>(
            reinterpret_cast<const unsigned char*>(take(sizeof(Unsigned)).data()));
    }
    std::string_view text() { return take(number<uint32_t>()); }
    uint64_t smallNumber() {
        uint64_t value = 0;
        for (int shift = 0;; shift += 7) {
            const auto byte = number<uint8_t>();
            const uint64_t bits = byte & 0x7fU;
            if (shift >= 64 || bits << shift >> shift != bits) {
                throw BytesDamaged();
            }
            value |= bits << shift;
            if (byte < 0x80) {
                return value;
            }
        }
    }
    std::string textLike(std::string_view other) {
        const size_t first = sizeUpTo(other.size());
        const size_t last = sizeUpTo(other.size() - first);
        const std::string_view between = take(sizeUpTo(rest.size()));
        return std::string(other.substr(0, first)).append(between).append(other.substr(other.size() - last));
    }

 private:
    size_t sizeUpTo(size_t most) {
        const uint64_t size = smallNumber();
        if (size > most) {
            throw BytesDamaged();
        }
        return static_cast<size_t>(size);
    }
    std::string_view take(size_t size) {
        if (size > rest.size()) {
            throw BytesDamaged();
        }
        const std::string_view taken = rest.substr(0, size);
        rest.remove_prefix(size);
        return taken;
    }

    std::string_view rest;
};
