#pragma once

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <memory>
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

// The entries of an open directory, in its order, as readdir() gives them, but for a
// quarter of its memory: thousands of directories may be read at once, each within the
// one above it.
class DirectoryEntries {
 public:
    explicit DirectoryEntries(int directory) : descriptor(directory) {}

    // Null at the end, and when the rest cannot be read.
    const dirent64* next() {
        for (;;) {
            if (position == size && !fill()) {
                return nullptr;
            }
            const auto* entry = reinterpret_cast<const dirent64*>(buffer.get() + position);
            position += entry->d_reclen;
            if (entry->d_ino != 0) {
                return entry;
            }
        }
    }

    // errno of what could not be read, or 0.
    int failure() const { return reason; }

 private:
    static constexpr size_t kBufferSize = 8192;

    bool fill() {
        const ssize_t got = getdents64(descriptor, buffer.get(), kBufferSize);
        if (got < 0 && errno != ENOENT) {  // which tells that the directory was removed
            reason = errno;
        }
        position = 0;
        size = got > 0 ? static_cast<size_t>(got) : 0;
        return got > 0;
    }

    int descriptor;
    std::unique_ptr<char[]> buffer = std::make_unique_for_overwrite<char[]>(kBufferSize);
    size_t position = 0;
    size_t size = 0;
    int reason = 0;
};
