#pragma once

#include <cstddef>
#include <sys/types.h>

// An extended attribute of an entry of an open directory, links not followed, or with an
// empty name of the directory itself; one component at most is looked up. They answer,
// and set errno, as lgetxattr, lsetxattr and lremovexattr do. Internal.

ssize_t getAttributeAt(int directory, const char* name, const char* attribute, void* buffer, size_t size);
int setAttributeAt(int directory, const char* name, const char* attribute, const void* bytes, size_t size);
int removeAttributeAt(int directory, const char* name, const char* attribute);
