#include "labelmgr/model/operation_error.h"

void throwLabelError(const std::string& path, int reason) {
    if (reason == ENOSPC || reason == EDQUOT) {  // of the file, or of its owner
        throw FileRefuses(path, std::strerror(reason));
    }
    throwFileError(path, reason);
}

void throwFileError(const std::string& path, int reason) {
    if (isGone(reason)) {
        throw FileGone(path, std::strerror(reason));
    }
    switch (reason) {
        case EREMOTE:
            throw FileRefuses(path, "refused: on a network or FUSE file system, which may never answer");
        case E2BIG:
        case ELOOP:
        case ENAMETOOLONG:
        case ENOTSUP:
        case EPERM:
            throw FileRefuses(path, std::strerror(reason));
        default:
            throw systemError(path, reason);
    }
}
