#pragma once

#include <string>
#include <vector>

using Lines = std::vector<std::string>;

// The rows of a table in text: one a line, cells parted by "|", blanks around them dropped, "\n" in them a
// line end, missing cells at the end empty. Empty lines and lines that begin with "#" are no rows.
std::vector<Lines> readTable(const std::string& text, size_t columns);

Lines split(const std::string& text, const std::string& separator);
std::string replaceAll(const std::string& text, const std::string& pattern, const std::string& replacement);

// The text with each "\xHH" as the byte of that number, for what a cell cannot hold.
std::string unescape(const std::string& text);
