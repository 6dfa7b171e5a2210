#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "base/handles.h"

// Where files lie, found out without a request to their file systems: one that does not
// answer must not be waited for. Internal.

// What holds a file: a file system of this machine, the kernel's view of itself, or
// another machine or program, which may never answer.
enum class FileSystemKind { kLocal, kPseudo, kRemote };

FileSystemKind kindOfFileSystem(std::string_view type);

// The kinds by device, of the text of /proc/self/mountinfo. Lines of another form say
// nothing.
std::map<dev_t, FileSystemKind> parseMounts(const std::string& mountinfo);

// The list of what is mounted, read when it is first needed and again when it has
// changed. Belongs to one thread.
class MountTable {
 public:
    static constexpr const char* kPath = "/proc/self/mountinfo";

    // A device that is not in the list is a part of another file system (a subvolume),
    // and local. Nothing, and errno, when the list cannot be read.
    std::optional<FileSystemKind> kindOf(dev_t device);

 private:
    bool isCurrent() const;

    UniqueFd list;
    std::map<dev_t, FileSystemKind> kinds;
};

// Where an entry lies and what it is.
struct EntryStatus {
    dev_t device = 0;
    ino_t inode = 0;
    mode_t mode = 0;
    nlink_t links = 0;
    uint64_t mount = 0;  // 0 where the kernel does not tell (before 5.8)
};

// Of an entry of an open directory, links not followed, or with an empty name of what the
// descriptor stands for. 0, or errno.
int lookAt(int directory, const char* name, EntryStatus& status);
