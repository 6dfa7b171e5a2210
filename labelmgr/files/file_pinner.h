#pragma once

#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

#include "labelmgr/files/label_bytes.h"
#include "labelmgr/files/pinned_file.h"
#include "labelmgr/model/context.h"

// Files found one after the other. Failures throw OperationError as those of pinned files
// do.

// A file by its name in a directory that stays open: for changes of so many files that
// they cannot all be held. Whatever has the name at a call is the file.
class EntryFile {
 public:
    // Throws OperationError.
    EntryFile(const Context& context, const std::string& canonicalPath, const Pin& openDirectory);

    const std::string& path() const { return fullPath; }
    dev_t device() const { return status.device; }
    ino_t inode() const { return status.inode; }
    mode_t mode() const { return status.mode; }

    LabelBytes label() const;
    void setLabel(const LabelBytes& bytes) const;
    PinnedFile::Flushable openToFlush() const;  // never the file alone

 private:
    const std::string& attribute;
    const std::string& fullPath;
    int directory;
    const char* name;
    EntryStatus status;
};

// A file as it was when somebody looked.
struct SeenFile {
    std::string path;
    EntryStatus status;
    LabelBytes label;
    int reason = 0;  // for throwFileError: why it could not be looked at
};

// Finds files one after the other; those that follow each other in one directory cost one
// look-up each. The last directories on the way there stay open.
class FilePinner {
 public:
    explicit FilePinner(const Context& in) : context(in) {}

    PinnedFile pin(const std::string& canonicalPath);
    // As long as the path lives, and no other one is asked for.
    EntryFile entry(const std::string& canonicalPath);
    // Fill in what the path leads to.
    void see(SeenFile& file);
    std::unique_ptr<PinnedFile> pinAndSee(SeenFile& file);  // null where it cannot be pinned

 private:
    // 0, or errno.
    int enterDirectoryOf(const std::string& path);
    int find(const std::string& path, Pin& pin);

    struct Directory {
        size_t length;  // of its path, as the beginning of directoryPath
        Pin pin;
    };
    const Pin& directory() const { return way.back().pin; }

    const Context& context;
    std::string directoryPath;
    std::vector<Directory> way;  // to there, or to the last that could be entered
    int whyNone = 0;
};
