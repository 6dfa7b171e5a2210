#pragma once

#include <string>
#include <sys/types.h>

#include "base/handles.h"
#include "labelmgr/files/label_bytes.h"
#include "labelmgr/files/mount_table.h"
#include "labelmgr/model/context.h"

// Files held by descriptors, so that what a change reads, writes, flushes and takes back
// is one and the same file, whatever has its name meanwhile. Failures throw
// OperationError with the path, FileGone when there is no such file.

// A network or FUSE file system may never answer. What lies on one is refused, unless
// that is allowed, before anything is asked of it.
enum class Remote { kRefuse, kAllow };

// A descriptor that stands for a file (O_PATH).
struct Pin {
    UniqueFd descriptor;
    EntryStatus status;
};

Pin pinRoot();
// A file found by its canonical path, one component after the other: no link that was
// swapped in since is followed; a link in the last component is the file. Works for paths
// longer than the system takes at once.
Pin pinPath(const std::string& canonicalPath, Remote remote = Remote::kRefuse);

// An entry of a pinned directory, links not followed: 0, or errno for throwFileError.
int pinEntry(const Pin& directory, const char* name, Remote remote, Pin& entry);
// An entry that is not pinned.
int lookBelow(const Pin& directory, const char* name, EntryStatus& status);

// Whether the file system or mount of what a descriptor stands for takes no writes.
bool isOnReadOnlyFileSystem(int descriptor);

// Such a file with its label.
class PinnedFile {
 public:
    PinnedFile(const Context& context, std::string canonicalPath, Pin pinned);
    PinnedFile(const Context& context, const std::string& canonicalPath)
        : PinnedFile(context, canonicalPath, pinPath(canonicalPath)) {}

    const std::string& path() const { return name; }
    mode_t mode() const { return pin.status.mode; }
    dev_t device() const { return pin.status.device; }
    ino_t inode() const { return pin.status.inode; }

    bool isOnReadOnlyFileSystem() const { return ::isOnReadOnlyFileSystem(pin.descriptor.get()); }

    LabelBytes label() const;
    // 0, or errno; it throws where no label can be read.
    int readLabel(LabelBytes& label) const;
    // Nothing takes the label away.
    void setLabel(const LabelBytes& bytes) const;

    // A descriptor to flush it by: of the file itself, or where that is no regular file
    // and no directory, or does not open, of the directory that holds it.
    struct Flushable {
        UniqueFd descriptor;
        bool isTheFile = false;
    };
    Flushable openToFlush() const;

 private:
    [[noreturn]] void fail(int reason) const;

    std::string name;
    std::string attribute;
    Pin pin;
    std::string nameInProc;  // leads from the descriptor's number to the file and nowhere else
};
