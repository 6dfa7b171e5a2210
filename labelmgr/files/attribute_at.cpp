#include "labelmgr/files/attribute_at.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "base/handles.h"

namespace {

// Linux 6.13 has calls that take a directory and a name. Where the C library does not
// know them yet, these are their numbers on every architecture but Alpha.
#ifdef SYS_setxattrat
constexpr long kSetXattrAt = SYS_setxattrat;
constexpr long kGetXattrAt = SYS_getxattrat;
#else
constexpr long kSetXattrAt = 463;
constexpr long kGetXattrAt = 464;
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

long setByName(int directory, const char* name, const char* attribute, const void* bytes, size_t size) {
    XattrArguments arguments{reinterpret_cast<uintptr_t>(bytes), static_cast<uint32_t>(size), 0};
    return syscall(kSetXattrAt, directory, name, AT_SYMLINK_NOFOLLOW, attribute, &arguments,
                   sizeof(arguments));
}

// A sandbox may refuse calls that it does not know with EPERM.
bool kernelHasCalls() {
    static const bool has = getByName(AT_FDCWD, "/", "security.none", nullptr, 0) >= 0 ||
                            (errno != ENOSYS && errno != EPERM && errno != EACCES);
    return has;
}

// Elsewhere a descriptor of the entry itself stands for it; /proc leads from its number
// to it and nowhere else.
struct PinnedEntry {
    PinnedEntry(int directory, const char* name)
        : descriptor(openat(directory, name, O_PATH | O_NOFOLLOW | O_CLOEXEC)) {
        std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", descriptor.get());
    }

    UniqueFd descriptor;
    std::array<char, 32> path{};
};

}  // namespace

ssize_t getAttributeAt(int directory, const char* name, const char* attribute, void* buffer, size_t size) {
    if (*name == '\0') {
        return fgetxattr(directory, attribute, buffer, size);
    }
    if (kernelHasCalls()) {
        return getByName(directory, name, attribute, buffer, size);
    }
    const PinnedEntry entry(directory, name);
    return entry.descriptor ? getxattr(entry.path.data(), attribute, buffer, size) : -1;
}

int setAttributeAt(int directory, const char* name, const char* attribute, const void* bytes, size_t size) {
    if (*name == '\0') {
        return fsetxattr(directory, attribute, bytes, size, 0);
    }
    if (kernelHasCalls()) {
        return static_cast<int>(setByName(directory, name, attribute, bytes, size));
    }
    const PinnedEntry entry(directory, name);
    return entry.descriptor ? setxattr(entry.path.data(), attribute, bytes, size, 0) : -1;
}
