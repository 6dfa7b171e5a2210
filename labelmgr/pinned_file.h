#pragma once

#include <string>
#include <sys/types.h>

#include "base/handles.h"
#include "labelmgr/file_labels.h"

// A file found by its canonical path, one component after the other, so that no link that was swapped in
// since is followed; a link in the last component is the file. Works for paths longer than the system takes
// at once. A descriptor that stands for the file (O_PATH). Throws OperationError with the path, FileGone when
// there is no such file.
UniqueFd pinPath(const std::string& canonicalPath);

// Such a file with its label.
class PinnedFile {
 public:
    explicit PinnedFile(const std::string& canonicalPath);

    mode_t mode() const;
    LabelBytes label() const;
    // Nothing takes the label away.
    void setLabel(const LabelBytes& bytes) const;

 private:
    std::string path;
    UniqueFd file;
    std::string nameInProc;  // leads from the descriptor's number to the file and nowhere else
};
