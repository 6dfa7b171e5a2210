#pragma once

#include <string>
#include <sys/types.h>

// As root, throws OperationError for a file or directory that root does not own or that
// others may write.
void requireTrusted(const std::string& path, uid_t owner, mode_t mode);
