#pragma once

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <glob.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>

// Owners of what the C library and the label manager hand out. Internal.

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using UniqueDir = std::unique_ptr<DIR, CloseDirectory>;

struct CloseStream {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using UniqueStream = std::unique_ptr<std::FILE, CloseStream>;

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};
template <typename T>
using MallocOwner = std::unique_ptr<T, FreeMemory>;

// What glob() finds for a pattern, and what it answered.
struct GlobResult {
    GlobResult(const std::string& pattern, int flags)
        : status(glob(pattern.c_str(), flags, nullptr, &matches)) {}
    ~GlobResult() { globfree(&matches); }
    GlobResult(const GlobResult&) = delete;
    GlobResult& operator=(const GlobResult&) = delete;

    glob_t matches{};
    int status;
};

class UniqueFd {
 public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : fd(descriptor) {}
    UniqueFd(UniqueFd&& other) noexcept : fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    ~UniqueFd() { reset(); }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return fd; }
    explicit operator bool() const { return fd >= 0; }

    // For the call that takes the descriptor over.
    int release() { return std::exchange(fd, -1); }

    void reset() {
        if (fd >= 0) {
            close(release());
        }
    }

 private:
    int fd = -1;
};
