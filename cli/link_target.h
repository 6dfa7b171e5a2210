#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

#include "base/handles.h"
#include "base/mounts.h"

// The file systems that a walk of one operand meets. A network or FUSE file system may
// never answer, and is left alone unless the operand itself, which the caller has named,
// lies on one. Belongs to one thread.
class FileSystems {
 public:
    void beginOn(dev_t operandsDevice) { root = operandsDevice; }

    // Of what an entry of a directory lies on.
    bool mayNotAnswer(dev_t device, dev_t directorysDevice);
    bool isPseudo(dev_t device) { return mounts.kindOf(device) == FileSystemKind::kPseudo; }

    // As lookAt, with EREMOTE for what may not answer.
    int look(int directory, dev_t device, const char* name, EntryStatus& status);

 private:
    MountTable mounts;
    dev_t root = 0;
};

// Follows a link in an open directory to its end, without a request to a file system that
// may not answer, wherever the link leads. 0 and a descriptor that stands for the target
// (O_PATH), or errno: EREMOTE for such a file system, otherwise what stat() would say.
int openLinkTarget(FileSystems& fileSystems, int directory, dev_t device, const char* name, UniqueFd& target);
