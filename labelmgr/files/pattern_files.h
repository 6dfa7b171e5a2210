#pragma once

#include <cstddef>
#include <string>
#include <vector>

// Existing paths, links themselves included. Pseudo, network and FUSE file systems are
// left out. Paths that are too long are logged and counted, and do not hold up the rest;
// a directory that cannot be read may hold matches: OperationError.
struct FoundFiles {
    std::vector<std::string> paths;
    size_t unreadable = 0;
};

// What matches an absolute pattern as matchesPattern does: a star crosses slashes.
FoundFiles filesMatching(const std::string& pattern);

// Everything below a directory; nothing for any other file or none.
FoundFiles filesBelow(const std::string& directory);
