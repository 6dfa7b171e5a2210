#pragma once

#include <optional>
#include <string>

// Paths as mere texts; nothing here looks at the file system. Internal.

// Every run of slashes made one slash.
std::string collapseSlashes(std::string text);

// A path in the form in which paths are ordered: the plain byte order of keys is the
// order of comparePaths().
struct PathKey {
    std::string bytes;
    size_t added = 0;  // how many of them stand in front of the path as it was written

    bool operator<(const PathKey& other) const { return bytes < other.bytes; }
};

// Makes keys. The working directory, which relative paths need, is read once for all of
// them.
class PathKeys {
 public:
    // A path that cannot be made absolute (it is empty, or the working directory is gone)
    // is ordered as it is written, so that the order stays strict whatever comes.
    PathKey keyOf(std::string path);

    static std::string pathOf(PathKey key);

 private:
    std::optional<std::string> prefix;
};
