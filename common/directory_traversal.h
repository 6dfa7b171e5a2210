#pragma once

#include <string>
#include <vector>

#include "base/api.h"

// Lists of paths: of a directory tree, and in order. No state is kept.

// Appends the tree below root to `out`, breadth-first: each directory that can be read,
// root included, followed by its regular files and symbolic links in the order in which
// it yields them. Links are listed and never followed, except that root may be one.
// Devices, FIFOs and sockets are left out. What an entry is, is asked of the entry,
// whatever its directory says: one that a device is mounted over is left out, one that
// has gone meanwhile is an error. Paths begin with root as given, less one trailing slash
// and with runs of slashes made one.
//
// 0, and -1 for an unusable root. Everything wrong is one error line, and below the root
// the walk goes on without the entry:
//   "Path too long: ROOT"                        more than 4096 bytes
//   "Directory does not exist: ROOT, error: REASON"
//   "Not a directory: ROOT"
//   "Failed to open directory: PATH, error: REASON"
//   "Failed to stat path: PATH, error: REASON"  also for a path over PATH_MAX
//   "Potential path traversal detected: PATH"    never, unless this function is broken
//   "Reached maximum directory limit: 100000"   read: the walk ends, with 0
ZORV_API int traverseDirectory(const std::string& root, std::vector<std::string>& out);

// The paths in the order of comparePaths(). First, each whose last component holds a star
// (not for ? or brackets) is replaced by what expandPath() makes of it, which may be
// nothing. Duplicates stay. Throws what expandPath() throws for a pattern's directory
// that cannot be read; logs nothing. The working directory is read once.
ZORV_API std::vector<std::string> sortPaths(std::vector<std::string> paths);
