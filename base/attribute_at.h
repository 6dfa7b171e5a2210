#pragma once

#include <cstddef>
#include <sys/types.h>

// An extended attribute of an entry of an open directory, links not followed, or with an
// empty name of the directory itself. They answer, and set errno, as lgetxattr and
// lremovexattr do. Internal.

ssize_t readAttributeAt(int directory, const char* name, const char* attribute, void* buffer, size_t size);
int removeAttributeAt(int directory, const char* name, const char* attribute);
