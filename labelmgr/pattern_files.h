#pragma once

#include <string>
#include <vector>

// Every existing path, links themselves included, that matches an absolute pattern as matchesPattern does: a
// star crosses slashes. Pseudo and remote file systems are left out. What cannot be read is logged and passed
// over: nobody may keep a rule from being changed by what they put into a directory of theirs. Throws
// OperationError when the directory before the first wildcard cannot be read.
std::vector<std::string> filesMatching(const std::string& pattern);

// Everything below a directory; nothing for any other file or none.
std::vector<std::string> filesBelow(const std::string& directory);
