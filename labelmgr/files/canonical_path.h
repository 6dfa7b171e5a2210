#pragma once

#include <string>

#include "labelmgr/files/pinned_file.h"

// Names of files as records and labels know them. Failures throw OperationError with the
// path and the reason, FileGone when there is no such file.

// The file's path with all links resolved.
std::string canonicalPath(const char* path, Remote remote = Remote::kRefuse);
// The same, or when the file is gone the absolute path without "." and "..", by which
// records of it may still be known.
std::string canonicalPathOfRecord(const char* path);

// The pattern with the links in its directories before the first wildcard resolved, since
// it is matched with canonical paths. A directory that is not there stays as it is.
std::string canonicalPattern(const std::string& pattern);
