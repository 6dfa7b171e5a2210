#pragma once

#include <cstdio>
#include <dirent.h>
#include <memory>
#include <unistd.h>

// Owners of what the C library hands out. Internal.

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using UniqueDir = std::unique_ptr<DIR, CloseDirectory>;

struct CloseStream {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using UniqueStream = std::unique_ptr<std::FILE, CloseStream>;

class UniqueFd {
 public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : fd(descriptor) {}
    ~UniqueFd() { reset(); }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return fd; }

    // For the call that takes the descriptor over.
    int release() {
        const int released = fd;
        fd = -1;
        return released;
    }

    void reset() {
        if (fd >= 0) {
            close(release());
        }
    }

 private:
    int fd = -1;
};
