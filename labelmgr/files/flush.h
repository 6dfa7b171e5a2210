#pragma once

#include <map>
#include <mutex>
#include <string>
#include <sys/types.h>

#include "base/handles.h"

// File systems with labels that may not have reached the disk yet. Used by any number of
// threads.
class WrittenFileSystems {
 public:
    // Notes the file system of an open file or directory; the path is for the error of
    // flush().
    void add(dev_t device, int descriptor, const std::string& path);

    bool has(dev_t device);
    void clear();

    // Waits until everything written to them is on disk. Throws OperationError for one
    // that cannot.
    void flush();

 private:
    struct FileSystem {
        UniqueFd descriptor;
        std::string path;
    };

    std::mutex mutex;
    std::map<dev_t, FileSystem> fileSystems;
};
