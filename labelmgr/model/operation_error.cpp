#include "labelmgr/model/operation_error.h"

void throwFileError(const std::string& path, int reason) {
    switch (reason) {
        case ENOENT:
        case ENOTDIR:
            throw FileGone(path, std::strerror(reason));
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
