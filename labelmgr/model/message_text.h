#pragma once

#include <string>
#include <string_view>

// Bytes of a name as they can stand in a line of text: control characters as a backslash
// and three octal digits.
std::string asOneLine(std::string_view bytes);
// As one word: blanks and backslashes as well, so that it can be read back.
std::string asOneWord(std::string_view bytes);

// A message of the change feed: four words with one blank between them.
std::string changeMessage(std::string_view topic, std::string_view operation, std::string_view target,
                          std::string_view value);
