#pragma once

#include <cstddef>
#include <sys/types.h>

// The label attribute of an entry of an open directory, links not followed; an empty name is the directory
// itself. One component at most is looked up. As the attribute calls of the system: a size or 0, else -1 and
// errno.
ssize_t getLabelAt(int directory, const char* name, void* buffer, size_t size);
int removeLabelAt(int directory, const char* name);  // not for the empty name
int setLabelAt(int directory, const char* name, const void* bytes, size_t size);
