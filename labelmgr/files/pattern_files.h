#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "labelmgr/files/file_pinner.h"
#include "labelmgr/model/context.h"

// Existing files in no order, links themselves included. Pseudo, network and FUSE file
// systems are left out. Paths that are too long are logged and counted, and do not hold
// up the rest; a directory that cannot be read may hold matches: OperationError.
struct FoundFiles {
    std::vector<SeenFile> files;
    size_t unreadable = 0;
};

// What matches an absolute pattern as matchesPattern does: a star crosses slashes. Their
// labels are read with them.
FoundFiles filesMatching(const Context& context, const std::string& pattern);

// Everything below a directory, without labels; nothing for any other file or none.
FoundFiles filesBelow(const std::string& directory);
