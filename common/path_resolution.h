#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "base/api.h"

// From one path to another: canonical forms, existing parents, entries by pattern, and
// two comparisons of the texts alone. Only expandPath throws; every other failure is an
// empty string or false, logged as said under the function's name. No state is kept, but
// relative paths depend on the working directory at the moment of the call.

// The canonical path: all links, "." and ".." resolved. Empty, after one line, on any
// failure: warning "path is empty"; warning "file is not exists, PATH" (a dangling link
// too); error "Resolve realpath failed for PATH: REASON" from the file system,
// "Unexpected error in getRealPath: REASON" for anything else.
ZORV_API std::string getRealPath(const std::string& path);

// Where a link itself is: the directory part made canonical by getRealPath, which logs
// when it cannot, the last component kept as written. Needs a directory part: a bare name
// answers empty, after the warning for an empty path. Empty for an empty path; any other
// failure is a debug line, "error: REASON".
ZORV_API std::string getLinkRealPath(const std::string& path);

// The deepest existing directory, links followed, in front of the first * or ? (brackets
// are no wildcards here), without slashes at its end. The text in front of the wildcard
// is tried whole first: "/var" of "/var/lo*/x", and "/var/log" if the pattern is
// "/var/log*" and that directory exists. Empty for an empty pattern and for a relative
// one of which no directory exists. An error such as a lack of rights is logged,
// "filesystem error: REASON", and answers empty.
ZORV_API std::string findFirstValidParentDir(const std::string& pattern);

// The entries of the path's parent directory whose names fnmatch() accepts under the last
// component, hidden ones too and a backslash being an ordinary character, in the
// directory's order. Only the last component is a pattern. Logs nothing. Throws
// std::filesystem::filesystem_error when the directory cannot be read, as for a path
// without a directory part.
ZORV_API std::vector<std::filesystem::path> expandPath(const std::filesystem::path& path);

// Whether child lies below parent by the texts of the absolute paths alone; nothing is
// resolved. Settled asymmetries: a path is not its own parent, but "/a/" is the parent of
// "/a/"; "/a/b" is the parent of "/a/b/../c". False when one cannot be made absolute (it
// is empty, or the working directory is gone).
ZORV_API bool isParentPath(const std::string& parent, const std::string& child);

// The text with every run of slashes made one, and without a slash, or a slash and a
// star, at its end: "/a/b" of "/a//b/" and of "/a//b/*". "/" stays; so do "*" and the
// empty text.
ZORV_API std::string formatPath(const std::string& path);

// The order of path lists: the absolute texts byte by byte, bytes as *signed* numbers, so
// that UTF-8 names come before ASCII ones; a text before its continuations. A strict weak
// order for any paths: one that cannot be made absolute is ordered as it is written.
ZORV_API bool comparePaths(const std::filesystem::path& a, const std::filesystem::path& b);

// Whether the file system that holds the path is mounted read-only. A failure is logged,
// "statfs error, REASON, PATH" in this order, and answers false.
ZORV_API bool isFilesystemReadOnly(const char* path);
