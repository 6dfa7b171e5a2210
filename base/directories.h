#pragma once

#include <cstring>
#include <sys/resource.h>

// What every reader of directories needs. Internal.

inline bool isSelfOrParent(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// A deep walk holds more descriptors than the usual soft limit allows. False when no more
// are to be had.
inline bool raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max) {
        return false;
    }
    limit.rlim_cur = limit.rlim_max;
    return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}
