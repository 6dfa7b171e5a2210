#include "cli/label_walkers.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <span>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "base/attribute_at.h"
#include "base/directories.h"
#include "base/handles.h"
#include "cli/command_options.h"
#include "cli/output.h"
#include "label/label.h"

namespace {

// A walk holds one descriptor a level, and a path of the system's greatest length has
// more levels than the usual soft limit allows.
UniqueFd openDirectory(int parent, const char* name, int flags) {
    flags |= O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;
    UniqueFd directory(openat(parent, name, flags));
    if (!directory && errno == EMFILE && raiseDescriptorLimit()) {
        directory = UniqueFd(openat(parent, name, flags));
    }
    return directory;
}

// Below the operand each directory is opened by its name in the one above it, and no link
// is followed.
class Walk {
 public:
    Walk(const std::string& operand, const std::string& attribute, const FileCallback& callbackForEach)
        : path(operand), attributeName(attribute), callback(callbackForEach) {}

    void run() {
        const UniqueFd directory = openDirectory(AT_FDCWD, path.c_str(), 0);
        EntryStatus status;
        if (const int reason = directory ? lookAt(directory.get(), "", status) : errno) {
            tellFailure(reason);
            return;
        }
        fileSystems.beginOn(status.device);
        callback(path, attributeName);
        readEntries({directory.get(), status.device, fileSystems});
    }

 private:
    void tellFailure(int reason) const {
        printLine("%s opendir error: %s", path.c_str(), std::strerror(reason));
    }

    void descend(const WalkedDirectory& parent, const char* name) {
        EntryStatus status;
        int reason = path.size() < PATH_MAX ? fileSystems.look(parent.descriptor, parent.device, name, status)
                                            : ENAMETOOLONG;
        UniqueFd descriptor;
        if (reason == 0) {
            descriptor = openDirectory(parent.descriptor, name, O_NOFOLLOW);
            // Something may have been mounted over it meanwhile.
            reason = descriptor ? fileSystems.look(descriptor.get(), parent.device, "", status) : errno;
        }
        if (reason != 0) {
            tellFailure(reason);
            return;
        }
        const WalkedDirectory directory{descriptor.get(), status.device, fileSystems};
        callback({path, directory, ""}, attributeName);
        readEntries(directory);
    }

    void readEntries(const WalkedDirectory& directory) {
        const size_t ownLength = path.size();
        if (path.back() != '/') {
            path.push_back('/');
        }
        const size_t prefixLength = path.size();
        DirectoryEntries entries(directory.descriptor);
        while (const dirent64* entry = entries.next()) {
            if (entry->d_type != DT_DIR) {
                callback({path.append(entry->d_name), directory, entry->d_name}, attributeName);
            } else if (!isSelfOrParent(entry->d_name)) {
                path.append(entry->d_name);
                descend(directory, entry->d_name);
            }
            path.resize(prefixLength);
        }
        path.resize(ownLength);
        if (entries.failure() != 0) {  // the rest of the directory could not be read
            tellFailure(entries.failure());
        }
    }

    std::string path;  // grows by a component on the way down and shrinks again
    const std::string& attributeName;
    const FileCallback& callback;
    FileSystems fileSystems;
};

// 0, or errno.
int removeAttribute(const LabelledFile& file, const std::string& attributeName) {
    const char* attribute = attributeName.c_str();
    if (file.failure != 0) {
        return file.failure;
    }
    const int result = file.directory != AT_FDCWD ? removeAttributeAt(file.directory, file.name, attribute)
                       : file.noDereference       ? lremovexattr(file.name, attribute)
                                                  : removexattr(file.name, attribute);
    return result == 0 ? 0 : errno;
}

}  // namespace

int showLabel(const WalkedFile& file, const std::string& attributeName) {
    if (file.path.empty() || attributeName.empty()) {
        printLine("filename or attr_name is empty!");
        return 0;
    }
    Label label;
    const ReachedFile reached(file, ReachedFile::Target::kMustExist);
    if (getFromXattr(label, reached.file()) != 0) {
        printLine("get file label failed, ");
        return 0;
    }
    printLine("file: %s label: %s", file.path.c_str(), label.toString().c_str());
    return 1;
}

int removeLabel(const WalkedFile& file, const std::string& attributeName) {
    const ReachedFile reached(file, ReachedFile::Target::kAny);
    if (const int reason = removeAttribute(reached.file(), attributeName)) {
        // Names lremovexattr whichever call it was.
        printLine("remove file label from xattr error, %s lremovexattr failed, %s", file.path.c_str(),
                  std::strerror(reason));
        return 0;
    }
    return 1;
}

void walkPattern(const std::string& pattern, const std::string& attributeName, const FileCallback& callback,
                 bool recursive) {
    const GlobResult found(pattern, GLOB_TILDE);
    const std::span<char*> matches(found.matches.gl_pathv, found.matches.gl_pathc);
    if (matches.empty()) {
        std::fprintf(stderr, "Warning: No files matched the pattern: %s\n", pattern.c_str());
        return;
    }
    for (const char* match : matches) {
        struct stat status {};
        if (stat(match, &status) != 0) {
            std::fprintf(stderr, "Error: File or directory does not exist: %s\n", match);
        } else if (recursive && S_ISDIR(status.st_mode)) {
            walkDirectory(match, attributeName, callback);
        } else {
            callback(std::string(match), attributeName);
        }
    }
}

void walkDirectory(const std::string& path, const std::string& attributeName, const FileCallback& callback) {
    Walk(path, attributeName, callback).run();
}
