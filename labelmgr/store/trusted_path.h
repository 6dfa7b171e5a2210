#pragma once

#include <string>
#include <sys/types.h>

// As root, throws OperationError for a file or directory that root does not own or that
// others may write.
void requireTrusted(const std::string& path, uid_t owner, mode_t mode);

// The same for every directory above a canonical path; one that others may write is all
// right when it is sticky, so that they cannot put another entry in the place of root's.
void requireTrustedParents(const std::string& canonicalPath);
