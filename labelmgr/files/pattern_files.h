#pragma once

#include <string>
#include <vector>

// Every existing path, links themselves included, that matches an absolute pattern as
// matchesPattern does: a star crosses slashes. Pseudo and remote file systems are left
// out. Throws OperationError when a directory that may hold matches cannot be read.
std::vector<std::string> filesMatching(const std::string& pattern);

// Everything below a directory; nothing for any other file or none.
std::vector<std::string> filesBelow(const std::string& directory);
