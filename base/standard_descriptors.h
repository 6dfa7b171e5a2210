#pragma once

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

// A file opened on a standard descriptor that the caller left closed would receive what a
// program prints. Opened the wrong way round, the descriptor refuses it as the closed one
// would. To be called first of all. Internal.
inline void occupyStandardDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) == -1 && errno == EBADF) {
            static_cast<void>(open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}
