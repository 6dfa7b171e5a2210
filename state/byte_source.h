#pragma once

#include <array>
#include <cstddef>
#include <iterator>
#include <stdexcept>

#include "state/state_reader.h"

// The bytes of a file for the parser of JSON, which says nothing of lines in what it
// finds right, and would read a text of any length into memory.
class ByteSource {
 public:
    explicit ByteSource(const ReadBytes& readBytes) : read(readBytes) { advance(); }

    bool isAtEnd() const { return position >= size; }
    char current() const { return buffer[position]; }

    // The line of the byte before the current one.
    size_t line() const { return lines; }

    void advance() {
        if (size != 0) {
            lines += wasLineEnd ? 1 : 0;
            wasLineEnd = buffer[position] == '\n';
            ++position;
        }
        if (position == size) {
            fill();
        }
    }

    // To be called for each thing found.
    void noteFound() { foundAt = total - (size - position); }

 private:
    static constexpr size_t kMost = size_t{256} << 20;
    static constexpr size_t kMostBetween = size_t{1} << 20;

    void fill() {
        if (total > kMost || total - foundAt > kMostBetween) {
            throw std::length_error(total > kMost ? "more than 256 MiB"
                                                  : "more than 1 MiB without a key, value or bracket");
        }
        position = 0;
        size = read(buffer.data(), buffer.size());
        total += size;
    }

    const ReadBytes& read;
    std::array<char, 65536> buffer{};
    size_t position = 0;
    size_t size = 0;
    size_t total = 0;
    size_t foundAt = 0;
    size_t lines = 1;
    bool wasLineEnd = false;
};

// As the parser takes them; a default one is the end.
class ByteIterator {
 public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = char;

    ByteIterator() = default;
    explicit ByteIterator(ByteSource& bytes) : source(&bytes) {}

    char operator*() const { return source->current(); }
    ByteIterator& operator++() {
        source->advance();
        return *this;
    }
    bool operator==(const ByteIterator& other) const { return isAtEnd() == other.isAtEnd(); }

 private:
    bool isAtEnd() const { return source == nullptr || source->isAtEnd(); }

    ByteSource* source = nullptr;
};
