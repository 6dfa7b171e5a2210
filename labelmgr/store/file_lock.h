#pragma once

#include <fcntl.h>
#include <sys/types.h>

// Locks of bytes of an open file that belong to the descriptor, not to the process, so
// that no other descriptor's close drops them.
struct LockedBytes {
    off_t first;
    off_t count;  // 0: to the end
};

enum class LockKind : short { kShared = F_RDLCK, kExclusive = F_WRLCK };

// False at once when another holder is in the way (errno EAGAIN), or on failure.
bool tryLockBytes(int descriptor, LockKind kind, LockedBytes bytes);
void unlockBytes(int descriptor, LockedBytes bytes);
// Whether another holder would be in the way.
bool areBytesLocked(int descriptor, LockKind kind, LockedBytes bytes);
