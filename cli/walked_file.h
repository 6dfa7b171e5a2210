#pragma once

#include <array>
#include <string>

#include "base/handles.h"
#include "cli/link_target.h"
#include "label/label_xattr.h"

// A directory that a walk has open.
struct WalkedDirectory {
    int descriptor;
    dev_t device;
    FileSystems& fileSystems;
};

// What a walker hands to a callback: the path of a file and, below the operand, where the
// walk has found it, so that nothing is looked up by a path that others may have changed
// meanwhile. Made of a path alone it is looked up by that. Both are borrowed.
struct WalkedFile {
    WalkedFile(const std::string& filePath) : path(filePath) {}  // as a path, wherever one is expected
    // An empty name is the directory itself.
    WalkedFile(const std::string& filePath, const WalkedDirectory& holder, const char* nameThere)
        : path(filePath), directory(&holder), name(nameThere) {}
    operator const std::string&() const { return path; }

    const std::string& path;
    const WalkedDirectory* directory = nullptr;
    const char* name = "";
};

// Such a file, looked at and ready for the calls on its attributes. Below an operand only
// an entry that is a link is followed, and only with `noDereference` unset; what may not
// answer is not asked.
class ReachedFile {
 public:
    enum class Target { kMustExist, kAny };  // of a link itself

    ReachedFile(const WalkedFile& walked, Target required);
    ~ReachedFile() = default;
    ReachedFile(const ReachedFile&) = delete;
    ReachedFile& operator=(const ReachedFile&) = delete;

    const LabelledFile& file() const { return place; }

 private:
    void reachEntry(const WalkedFile& walked, Target required);
    void reachTarget(const WalkedFile& walked);

    LabelledFile place;
    UniqueFd target;
    std::array<char, 32> targetInProc{};
};
