#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// What process inspection makes of the texts of /proc. Internal.

// Of the line of /proc/cmdline; see parseKernelCmdline().
std::vector<std::pair<std::string, std::string>> parseKernelParameters(const std::string& line);

// The fourth field of a /proc/PID/stat text, the parent's pid; -1 when there is none or
// it is no number. The command name in parentheses may hold blanks, and the fields are
// counted by a simple scan over the words, not by the last parenthesis: a word "(..."
// begins the name, "...)" ends it and is the one that counts, words in between do not.
// Other programs expect what comes out of it for odd names.
int32_t parseParentPid(const std::string& stat);
