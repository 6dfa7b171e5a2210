#pragma once

#include <unistd.h>
#include <utility>

// A file descriptor that is closed with its owner.
class UniqueFd {
 public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : fd(descriptor) {}
    UniqueFd(UniqueFd&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() {
        if (fd >= 0) {
            close(fd);
        }
    }

    int get() const { return fd; }
    explicit operator bool() const { return fd >= 0; }

 private:
    int fd = -1;
};
