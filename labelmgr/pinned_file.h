#pragma once

#include <string>
#include <sys/types.h>

#include "common/posix_handles.h"
#include "labelmgr/file_labels.h"

// A file found by its canonical path, one component after the other, so that no link that was swapped in
// since is followed. Works for paths longer than the system takes at once. Throws OperationError with the
// path, FileGone when there is no such file.
class PinnedFile {
 public:
    explicit PinnedFile(const std::string& canonicalPath);

    mode_t mode() const;
    LabelBytes label() const;
    // Nothing takes the label away.
    void setLabel(const LabelBytes& bytes) const;

 private:
    const std::string& path;
    UniqueFd directory;
    std::string name;
};
