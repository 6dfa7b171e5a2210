#include "labelmgr/store/trusted_path.h"

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>

#include "labelmgr/model/operation_error.h"

void requireTrusted(const std::string& path, uid_t owner, mode_t mode) {
    if (geteuid() != 0) {
        return;
    }
    if (owner != 0) {
        throw OperationError(path, "refused: not owned by root");
    }
    if ((mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw OperationError(path, "refused: writable by others");
    }
}

void requireTrustedParents(const std::string& canonicalPath) {
    for (size_t end = canonicalPath.rfind('/'); end != std::string::npos && geteuid() == 0;
         end = end == 0 ? std::string::npos : canonicalPath.rfind('/', end - 1)) {
        const std::string parent = canonicalPath.substr(0, std::max<size_t>(end, 1));
        struct stat status {};
        if (stat(parent.c_str(), &status) != 0) {
            throw systemError(parent);
        }
        const bool isSticky = (status.st_mode & S_ISVTX) != 0;
        requireTrusted(parent, status.st_uid, isSticky ? 0 : status.st_mode);
    }
}
