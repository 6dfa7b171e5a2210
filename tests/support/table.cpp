#include "tests/support/table.h"

#include <regex>

std::vector<Lines> readTable(const std::string& text, size_t columns) {
    std::vector<Lines> rows;
    for (const std::string& line : split(text, "\n")) {
        if (line.find_first_not_of(' ') == std::string::npos || line.front() == '#') {
            continue;
        }
        Lines& cells = rows.emplace_back(split(line, "|"));
        cells.resize(columns);
        for (std::string& cell : cells) {
            cell = replaceAll(replaceAll(cell, "^ +| +$", ""), "\\\\n", "\n");
        }
    }
    return rows;
}

Lines split(const std::string& text, const std::string& separator) {
    Lines parts;
    for (size_t from = 0, to = 0; to != std::string::npos; from = to + separator.size()) {
        to = text.find(separator, from);
        parts.push_back(text.substr(from, to == std::string::npos ? to : to - from));
    }
    return parts;
}

std::string replaceAll(const std::string& text, const std::string& pattern, const std::string& replacement) {
    return std::regex_replace(text, std::regex(pattern), replacement);
}

std::string unescape(const std::string& text) {
    std::string bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool isEscape = text.compare(i, 2, "\\x") == 0;
        bytes += isEscape ? static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16)) : text[i];
        i += isEscape ? 3 : 0;
    }
    return bytes;
}
