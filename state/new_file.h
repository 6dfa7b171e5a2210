#pragma once

#include <string>
#include <string_view>

#include "base/handles.h"

// A file that is written beside the one whose place it takes, which happens at once and
// when all of it is on disk. Its mode is 0600. Failures throw OperationError.
class NewFile {
 public:
    // Links are followed. What is there must be a regular file.
    explicit NewFile(const std::string& path);
    // Leaves nothing behind unless it was committed.
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    void write(std::string_view bytes);
    // The name that it has until then, for others to write to it, too.
    const std::string& temporaryPath() const { return temporary; }
    void commit();

 private:
    std::string path;
    std::string temporary;
    UniqueFd descriptor;
    std::string buffer;
};
