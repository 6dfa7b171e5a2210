#pragma once

#include <string>

class Label;

// The attribute of a file that a walk has already looked at. Internal.

struct LabelledFile {
    // AT_FDCWD when the name is a path; otherwise links are not followed, and an empty
    // name is the directory itself.
    int directory;
    const char* name;
    bool noDereference;       // for a path
    const std::string& path;  // what the log calls it
    int failure;              // errno of the look at the file or a link's target, or 0
};

// As the member of Label, without a look of its own.
int getFromXattr(Label& label, const LabelledFile& file);
