#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>

// What is left of an open file, of a larger one as many bytes as are wanted at most.
// Nothing, with errno, for one that cannot be read. Internal.
inline std::optional<std::string> wholeFile(int descriptor, size_t most = SIZE_MAX) {
    std::string bytes;
    std::array<char, 65536> piece;
    ssize_t size = 0;
    while (bytes.size() < most &&
           (size = read(descriptor, piece.data(), std::min(piece.size(), most - bytes.size()))) > 0) {
        bytes.append(piece.data(), static_cast<size_t>(size));
    }
    return size < 0 ? std::nullopt : std::optional(std::move(bytes));
}
