#include "base/attribute_at.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

// Linux 6.13 has calls that take a directory and a name. Where the C library does not
// know them yet, these are their numbers on every architecture but Alpha.
#ifdef SYS_getxattrat
constexpr long kSetXattrAt = SYS_setxattrat;
constexpr long kGetXattrAt = SYS_getxattrat;
constexpr long kRemoveXattrAt = SYS_removexattrat;
#else
constexpr long kSetXattrAt = 463;
constexpr long kGetXattrAt = 464;
constexpr long kRemoveXattrAt = 466;
#endif

struct XattrArguments {
    uint64_t value;
    uint32_t size;
    uint32_t flags;
};

long getByName(int directory, const char* name, const char* attribute, void* buffer, size_t size) {
    XattrArguments arguments{reinterpret_cast<uintptr_t>(buffer), static_cast<uint32_t>(size), 0};
    return syscall(kGetXattrAt, directory, name, AT_SYMLINK_NOFOLLOW, attribute, &arguments,
                   sizeof(arguments));
}

// A sandbox may refuse calls that it does not know with EPERM.
bool kernelHasCalls() {
    static const bool has = getByName(AT_FDCWD, "/", "security.none", nullptr, 0) >= 0 ||
                            (errno != ENOSYS && errno != EPERM && errno != EACCES);
    return has;
}

// Elsewhere /proc leads from the directory's number to it and nowhere else.
struct NameInProc {
    NameInProc(int directory, const char* name) {
        std::snprintf(path.data(), path.size(), "/proc/self/fd/%d/%s", directory, name);
    }

    std::array<char, 32 + NAME_MAX> path;
};

}  // namespace

ssize_t getAttributeAt(int directory, const char* name, const char* attribute, void* buffer, size_t size) {
    if (*name == '\0') {
        return fgetxattr(directory, attribute, buffer, size);
    }
    if (kernelHasCalls()) {
        return getByName(directory, name, attribute, buffer, size);
    }
    return lgetxattr(NameInProc(directory, name).path.data(), attribute, buffer, size);
}

int setAttributeAt(int directory, const char* name, const char* attribute, const void* bytes, size_t size) {
    if (*name == '\0') {
        return fsetxattr(directory, attribute, bytes, size, 0);
    }
    if (kernelHasCalls()) {
        XattrArguments arguments{reinterpret_cast<uintptr_t>(bytes), static_cast<uint32_t>(size), 0};
        return static_cast<int>(syscall(kSetXattrAt, directory, name, AT_SYMLINK_NOFOLLOW, attribute,
                                        &arguments, sizeof(arguments)));
    }
    return lsetxattr(NameInProc(directory, name).path.data(), attribute, bytes, size, 0);
}

int removeAttributeAt(int directory, const char* name, const char* attribute) {
    if (*name == '\0') {
        return fremovexattr(directory, attribute);
    }
    if (kernelHasCalls()) {
        return static_cast<int>(syscall(kRemoveXattrAt, directory, name, AT_SYMLINK_NOFOLLOW, attribute));
    }
    return lremovexattr(NameInProc(directory, name).path.data(), attribute);
}
