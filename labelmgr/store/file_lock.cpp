#include "labelmgr/store/file_lock.h"

#include <unistd.h>

namespace {

struct flock lockOf(LockKind kind, LockedBytes bytes) {
    struct flock lock {};
    lock.l_type = static_cast<short>(kind);
    lock.l_whence = SEEK_SET;
    lock.l_start = bytes.first;
    lock.l_len = bytes.count;
    return lock;
}

}  // namespace

bool tryLockBytes(int descriptor, LockKind kind, LockedBytes bytes) {
    struct flock lock = lockOf(kind, bytes);
    return fcntl(descriptor, F_OFD_SETLK, &lock) == 0;
}

void unlockBytes(int descriptor, LockedBytes bytes) {
    struct flock lock = lockOf(LockKind::kShared, bytes);
    lock.l_type = F_UNLCK;
    fcntl(descriptor, F_OFD_SETLK, &lock);
}

bool areBytesLocked(int descriptor, LockKind kind, LockedBytes bytes) {
    struct flock lock = lockOf(kind, bytes);
    return fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}
