#include "labelmgr/store/trusted_path.h"

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
