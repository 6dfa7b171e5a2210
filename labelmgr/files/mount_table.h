#pragma once

#include <map>
#include <string>
#include <string_view>
#include <sys/types.h>

// What holds a file: a file system of this machine, the kernel's view of itself, or
// another machine or program, which may never answer.
enum class FileSystemKind { kLocal, kPseudo, kRemote };

FileSystemKind kindOfFileSystem(std::string_view type);

// The kinds by device, of the text of /proc/self/mountinfo. Lines of another form say
// nothing.
std::map<dev_t, FileSystemKind> parseMounts(const std::string& mountinfo);

// Of what is mounted now. A device that is not in the list is a part of another file
// system (a subvolume), and local. Throws OperationError when the list cannot be read.
FileSystemKind kindOfDevice(dev_t device);

// Where an entry lies and what it is, without a request to its file system: the answer of
// a file system that does not answer must not be waited for.
struct EntryStatus {
    dev_t device = 0;
    ino_t inode = 0;
    mode_t mode = 0;
};

// Of an entry of an open directory, links not followed, or with an empty name of what the
// descriptor stands for. 0, or errno.
int lookAt(int directory, const char* name, EntryStatus& status);
