#include "labelmgr/files/canonical_path.h"

#include <cerrno>
#include <climits>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "common/wildcard.h"
#include "labelmgr/model/operation_error.h"

namespace {

constexpr int kMostLinks = 40;

std::string join(const std::vector<std::string>& names) {
    std::string path;
    for (const std::string& name : names) {
        path.append("/").append(name);
    }
    return path.empty() ? "/" : path;
}

// Puts the components of a path in front of those that are still to come, last first.
void pushComponents(std::vector<std::string>& coming, const std::string& path) {
    const size_t end = path.size();
    if (path.empty() || path.back() == '/') {
        coming.emplace_back(".");  // what is before a last slash must be a directory
    }
    for (size_t stop = end; stop > 0;) {
        const size_t slash = path.rfind('/', stop - 1);
        const size_t begin = slash == std::string::npos ? 0 : slash + 1;
        if (begin < stop) {
            coming.push_back(path.substr(begin, stop - begin));
        }
        stop = slash == std::string::npos ? 0 : slash;
    }
}

std::string linkTarget(const Pin& link, const std::string& path) {
    std::string target(PATH_MAX, '\0');
    const ssize_t size = readlinkat(link.descriptor.get(), "", target.data(), target.size());
    if (size <= 0) {
        throwFileError(path, size == 0 ? ENOENT : errno);
    }
    target.resize(static_cast<size_t>(size));
    return target;
}

// The way of realpath(), which would ask file systems that do not answer.
class Resolution {
 public:
    Resolution(const std::string& pathToResolve, Remote remoteFiles)
        : path(pathToResolve), remote(remoteFiles), pin(pinRoot()) {
        if (path.empty()) {
            throwFileError(path, ENOENT);
        }
        pushComponents(coming, path);
        if (path.front() != '/') {
            pushComponents(coming, std::filesystem::current_path());
        }
    }

    std::string resolve() {
        while (!coming.empty()) {
            const std::string name = std::move(coming.back());
            coming.pop_back();
            if (!S_ISDIR(pin.status.mode)) {
                throwFileError(path, ENOTDIR);
            }
            if (name == "..") {
                if (!names.empty()) {
                    names.pop_back();
                    pin = pinPath(join(names), remote);
                }
            } else if (name != ".") {
                descend(name);
            }
        }
        std::string resolved = join(names);
        if (resolved.size() >= PATH_MAX) {  // more than a record holds
            throwFileError(path, ENAMETOOLONG);
        }
        return resolved;
    }

 private:
    void descend(const std::string& name) {
        Pin entry;
        if (const int reason = pinEntry(pin, name.c_str(), remote, entry)) {
            throwFileError(path, reason);
        }
        if (!S_ISLNK(entry.status.mode)) {
            names.push_back(name);
            pin = std::move(entry);
            return;
        }
        if (++links > kMostLinks) {
            throwFileError(path, ELOOP);
        }
        const std::string target = linkTarget(entry, path);
        pushComponents(coming, target);
        if (target.front() == '/') {
            names.clear();
            pin = pinRoot();
        }
    }

    std::string path;
    Remote remote;
    Pin pin;                          // of the names so far
    std::vector<std::string> names;   // of what is resolved
    std::vector<std::string> coming;  // last first
    int links = 0;
};

}  // namespace

std::string canonicalPath(const char* path, Remote remote) {
    return Resolution(path, remote).resolve();
}

std::string canonicalPathOfRecord(const char* path) {
    try {
        return canonicalPath(path);
    } catch (const FileGone&) {
        std::error_code failure;
        const std::filesystem::path resolved =
            std::filesystem::weakly_canonical(std::filesystem::absolute(path, failure), failure);
        if (failure) {
            throw;
        }
        return resolved;
    }
}

std::string canonicalPattern(const std::string& pattern) {
    const std::string directory = getParentDirWithoutWildcard(pattern);
    const std::string resolved = canonicalPathOfRecord(directory.c_str());
    if (resolved.find_first_of("*?") != std::string::npos) {
        throw OperationError(resolved, "a directory with this name cannot stand in a pattern");
    }
    const size_t rest = directory == "/" ? 0 : directory.size();
    return (resolved == "/" ? "" : resolved) + pattern.substr(rest);
}
