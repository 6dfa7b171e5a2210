#include "common/path_resolution.h"

#include <cerrno>
#include <cstring>
#include <fnmatch.h>
#include <stdexcept>
#include <sys/statvfs.h>
#include <system_error>

#include "common/path_text.h"
#include "log/logger.h"

namespace fs = std::filesystem;

namespace {

std::string withoutTrailingSlashes(std::string text) {
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

std::string getRealPath(const std::string& path) {
    if (path.empty()) {
        ZORV_LOG(warn, "path is empty");
        return {};
    }
    try {
        if (!fs::exists(fs::status(path))) {
            ZORV_LOG(warn, "file is not exists, %s", path.c_str());
            return {};
        }
        return fs::canonical(path).string();
    } catch (const fs::filesystem_error& failure) {
        ZORV_LOG(error, "Resolve realpath failed for %s: %s", path.c_str(), failure.what());
    } catch (const std::exception& failure) {
        ZORV_LOG(error, "Unexpected error in getRealPath: %s", failure.what());
    }
    return {};
}

std::string getLinkRealPath(const std::string& path) {
    if (path.empty()) {
        return {};
    }
    try {
        const fs::path link(path);
        const std::string parent = getRealPath(link.parent_path().string());
        return parent.empty() ? parent : (parent / link.filename()).lexically_normal().string();
    } catch (const std::exception& failure) {
        ZORV_LOG(debug, "error: %s", failure.what());
        return {};
    }
}

std::string findFirstValidParentDir(const std::string& pattern) {
    try {
        fs::path candidate(pattern.substr(0, pattern.find_first_of("*?")));
        while (!candidate.empty() && !fs::is_directory(fs::status(candidate))) {
            candidate = candidate.parent_path();
        }
        return withoutTrailingSlashes(candidate.string());
    } catch (const fs::filesystem_error& failure) {
        ZORV_LOG(error, "filesystem error: %s", failure.what());
        return {};
    }
}

std::vector<fs::path> expandPath(const fs::path& path) {
    const std::string pattern = path.filename().string();
    std::vector<fs::path> matches;
    for (const fs::directory_entry& entry : fs::directory_iterator(path.parent_path())) {
        if (fnmatch(pattern.c_str(), entry.path().filename().c_str(), FNM_NOESCAPE) == 0) {
            matches.push_back(entry.path());
        }
    }
    return matches;
}

bool isParentPath(const std::string& parent, const std::string& child) {
    std::error_code parentError;
    std::error_code childError;
    std::string start = fs::absolute(parent, parentError).string();
    const std::string text = fs::absolute(child, childError).string();
    if (parentError || childError) {
        return false;
    }
    if (start.back() != '/') {
        start += '/';
    }
    return text.compare(0, start.size(), start) == 0;
}

std::string formatPath(const std::string& path) {
    const size_t dropped = endsWith(path, "/*") ? 1 : 0;
    return withoutTrailingSlashes(collapseSlashes(path.substr(0, path.size() - dropped)));
}

bool comparePaths(const fs::path& a, const fs::path& b) {
    PathKeys keys;
    return keys.keyOf(a.native()) < keys.keyOf(b.native());
}

bool isFilesystemReadOnly(const char* path) {
    struct statvfs fileSystem {};
    if (statvfs(path, &fileSystem) != 0) {
        ZORV_LOG(error, "statfs error, %s, %s", std::strerror(errno), path);
        return false;
    }
    return (fileSystem.f_flag & ST_RDONLY) != 0;
}
