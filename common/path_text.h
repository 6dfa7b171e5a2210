#pragma once

#include <optional>
#include <string>

// Paths as mere texts; nothing here looks at the file system. Internal.

// Every run of slashes made one slash.
std::string collapseSlashes(std::string text);

// Turns paths into keys whose plain byte order is that of comparePaths(). The working directory, which
// relative paths need, is read once for all of them.
class PathKeys {
 public:
    // A path that cannot be made absolute (it is empty, or the working directory is gone) is ordered as it is
    // written, so that the order stays strict whatever comes.
    std::string keyOf(const std::string& path);

 private:
    std::optional<std::string> prefix;
};
