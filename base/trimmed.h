#pragma once

#include <string_view>

// The text without those of the blanks that stand at its ends. Internal.
inline std::string_view trimmed(std::string_view text, std::string_view blanks) {
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}
