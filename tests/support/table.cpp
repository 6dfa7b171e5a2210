#include "tests/support/table.h"

#include <algorithm>
#include <regex>

std::vector<Lines> readTable(const std::string& text, size_t columns) {
    std::vector<Lines> rows;
    for (const std::string& line : split(text, "\n")) {
        if (line.find_first_not_of(' ') == std::string::npos || line.front() == '#') {
            continue;
        }
        Lines& cells = rows.emplace_back(split(line, "|"));
        cells.resize(std::max(columns, cells.size()));
        for (std::string& cell : cells) {
            cell = replaceAll(replaceAll(cell, "^ +| +$", ""), "\\\\n", "\n");
        }
    }
    return rows;
}

std::vector<Lines> readRuns(const std::string& text, const std::string& marks) {
    std::vector<Lines> runs;
    for (const Lines& parts : readTable(replaceAll(text, "\\\\\n *", ""), 1)) {
        for (const std::string& part : parts) {
            const size_t mark = part.find(' ') == 1 ? marks.find(part[0]) : std::string::npos;
            if (mark == 0) {
                runs.emplace_back(marks.size());
            }
            const bool isMarked = mark != std::string::npos;
            std::string& cell = runs.at(runs.size() - 1)[isMarked ? mark : marks.find(' ')];
            cell += (cell.empty() ? "" : "\n") + unescape(part.substr(isMarked ? 2 : 0));
        }
    }
    return runs;
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
