#include "cli/label_walkers.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "base/directories.h"
#include "base/handles.h"
#include "cli/command_options.h"
#include "cli/output.h"
#include "label/label.h"

namespace {

// A walk holds one descriptor a level, and a path of the system's greatest length has
// more levels than the usual soft limit allows.
UniqueDir openDirectory(const char* path) {
    UniqueDir directory(opendir(path));
    if (!directory && errno == EMFILE && raiseDescriptorLimit()) {
        directory.reset(opendir(path));
    }
    return directory;
}

const dirent* nextEntry(DIR* directory) {
    errno = 0;
    return readdir(directory);
}

// `path` is one buffer for the whole walk: it grows by a component on the way down and
// shrinks again.
void walkDirectoryIn(std::string& path, const std::string& attributeName, const FileCallback& callback) {
    const UniqueDir directory = openDirectory(path.c_str());
    if (!directory) {
        printLine("%s opendir error: %s", path.c_str(), std::strerror(errno));
        return;
    }
    callback(path, attributeName);
    const size_t ownLength = path.size();
    if (path.back() != '/') {
        path.push_back('/');
    }
    const size_t prefixLength = path.size();
    while (const dirent* entry = nextEntry(directory.get())) {
        if (entry->d_type != DT_DIR) {
            callback(path.append(entry->d_name), attributeName);
        } else if (!isSelfOrParent(entry->d_name)) {
            walkDirectoryIn(path.append(entry->d_name), attributeName, callback);
        }
        path.resize(prefixLength);
    }
    const int reason = errno;
    path.resize(ownLength);
    if (reason != 0) {  // the rest of the directory could not be read
        printLine("%s opendir error: %s", path.c_str(), std::strerror(reason));
    }
}

}  // namespace

int showLabel(const std::string& path, const std::string& attributeName) {
    if (path.empty() || attributeName.empty()) {
        printLine("filename or attr_name is empty!");
        return 0;
    }
    Label label;
    if (label.getFromXattr(path, noDereference) != 0) {
        printLine("get file label failed, ");
        return 0;
    }
    printLine("file: %s label: %s", path.c_str(), label.toString().c_str());
    return 1;
}

int removeLabel(const std::string& path, const std::string& attributeName) {
    const auto remove = noDereference ? lremovexattr : removexattr;
    if (remove(path.c_str(), attributeName.c_str()) != 0) {
        // Names lremovexattr whichever call it was.
        printLine("remove file label from xattr error, %s lremovexattr failed, %s", path.c_str(),
                  std::strerror(errno));
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
            callback(match, attributeName);
        }
    }
}

void walkDirectory(const std::string& path, const std::string& attributeName, const FileCallback& callback) {
    std::string buffer = path;
    walkDirectoryIn(buffer, attributeName, callback);
}
