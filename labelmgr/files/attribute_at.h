#pragma once

#include <cstddef>
#include <sys/types.h>

// An extended attribute of an entry of an open directory, links not followed; an empty
// name is the directory itself. One component at most is looked up. As the attribute
// calls of the system: a size or 0, else -1 and errno.
ssize_t getAttributeAt(int directory, const char* name, const char* attribute, void* buffer, size_t size);
int setAttributeAt(int directory, const char* name, const char* attribute, const void* bytes, size_t size);
