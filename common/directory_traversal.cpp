#include "common/directory_traversal.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <queue>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_set>

#include "base/directories.h"
#include "base/handles.h"
#include "common/path_resolution.h"
#include "common/path_text.h"
#include "log/logger.h"

namespace {

constexpr size_t kMaxRootLength = 4096;
constexpr size_t kMaxDirectories = 100000;

struct Child {
    std::string path;
    mode_t mode = 0;
    int error = 0;  // of asking for the mode
};

class DirectoryReader {
 public:
    // A directory that has become a link since it was found is not followed out of the
    // tree.
    DirectoryReader(const std::string& path, bool mayBeLink) : prefix(path) {
        const int linkFlag = mayBeLink ? 0 : O_NOFOLLOW;
        UniqueFd fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC | linkFlag));
        directory.reset(fd.get() < 0 ? nullptr : fdopendir(fd.get()));
        if (directory == nullptr) {
            openError = errno;
            return;
        }
        fd.release();
        if (prefix.back() != '/') {
            prefix += '/';
        }
    }

    // 0 once the directory is open.
    int error() const { return openError; }

    bool next(Child& child) {
        const dirent* entry = readdir(directory.get());
        while (entry != nullptr && isSelfOrParent(entry->d_name)) {
            entry = readdir(directory.get());
        }
        if (entry == nullptr) {
            return false;
        }
        child.path.assign(prefix).append(entry->d_name);
        child.error = examine(*entry, child);
        return true;
    }

 private:
    int examine(const dirent& entry, Child& child) const {
        if (child.path.size() >= PATH_MAX) {
            return ENAMETOOLONG;  // what every later use of the path would meet
        }
        struct stat status {};
        if (fstatat(dirfd(directory.get()), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return errno;
        }
        child.mode = status.st_mode;
        return 0;
    }

    std::string prefix;
    UniqueDir directory;
    int openError = 0;
};

std::string normalizedRoot(std::string root) {
    if (root.size() > 1 && root.back() == '/') {
        root.pop_back();
    }
    return collapseSlashes(std::move(root));
}

bool lastComponentHoldsStar(const std::string& path) {
    return path.find('*', path.rfind('/') + 1) != std::string::npos;
}

}  // namespace

int traverseDirectory(const std::string& root, std::vector<std::string>& out) {
    const std::string start = normalizedRoot(root);
    if (start.size() > kMaxRootLength) {
        ZORV_LOG(error, "Path too long: %s", start.c_str());
        return -1;
    }
    if (access(start.c_str(), F_OK) != 0) {
        ZORV_LOG(error, "Directory does not exist: %s, error: %s", start.c_str(), std::strerror(errno));
        return -1;
    }
    struct stat rootStatus {};
    if (stat(start.c_str(), &rootStatus) != 0 || !S_ISDIR(rootStatus.st_mode)) {
        ZORV_LOG(error, "Not a directory: %s", start.c_str());
        return -1;
    }
    std::queue<std::string> pending({start});
    std::unordered_set<std::string> seen({start});
    for (size_t count = 0; !pending.empty(); pending.pop()) {
        const std::string& path = pending.front();
        if (path.compare(0, start.size(), start) != 0) {
            ZORV_LOG(error, "Potential path traversal detected: %s", path.c_str());
            continue;
        }
        DirectoryReader directory(path, count == 0);
        if (directory.error() != 0) {
            ZORV_LOG(error, "Failed to open directory: %s, error: %s", path.c_str(),
                     std::strerror(directory.error()));
            continue;
        }
        out.push_back(path);
        for (Child child; directory.next(child);) {
            if (child.error != 0) {
                ZORV_LOG(error, "Failed to stat path: %s, error: %s", child.path.c_str(),
                         std::strerror(child.error));
            } else if (S_ISLNK(child.mode) || S_ISREG(child.mode)) {
                out.push_back(child.path);
            } else if (S_ISDIR(child.mode) && seen.insert(child.path).second) {
                pending.push(child.path);
            }
        }
        if (++count == kMaxDirectories) {
            ZORV_LOG(error, "Reached maximum directory limit: %zu", kMaxDirectories);
            break;
        }
    }
    return 0;
}

std::vector<std::string> sortPaths(std::vector<std::string> paths) {
    PathKeys keys;
    std::vector<PathKey> sorted;
    sorted.reserve(paths.size());
    for (std::string& path : paths) {
        if (lastComponentHoldsStar(path)) {
            for (const std::filesystem::path& match : expandPath(path)) {
                sorted.push_back(keys.keyOf(match.native()));
            }
        } else {
            sorted.push_back(keys.keyOf(std::move(path)));
        }
    }
    std::sort(sorted.begin(), sorted.end());
    paths.clear();
    for (PathKey& key : sorted) {
        paths.push_back(PathKeys::pathOf(std::move(key)));
    }
    return paths;
}
