#pragma once

#include <string>
#include <vector>

using Lines = std::vector<std::string>;

// The rows of a table in text: one a line, cells parted by "|", blanks around them
// dropped, "\n" in them a line end, missing cells at the end empty. Empty lines and lines
// that begin with "#" are no rows.
std::vector<Lines> readTable(const std::string& text, size_t columns);

// The runs of a program in text, each as one cell a mark. A run begins with the first
// mark. Its parts, on lines of their own or parted by "|", are lines in the cell of the
// mark that they begin with, without one in that of " ". A backslash at the end joins two
// lines, and "\xHH" is the byte of that number.
std::vector<Lines> readRuns(const std::string& text, const std::string& marks);

Lines split(const std::string& text, const std::string& separator);
std::string replaceAll(const std::string& text, const std::string& pattern, const std::string& replacement);

// The text with each "\xHH" as the byte of that number, for what a cell cannot hold.
std::string unescape(const std::string& text);
