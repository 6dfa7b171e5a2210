#include <cerrno>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include "cli/command_options.h"
#include "cli/dispatch.h"
#include "cli/output.h"

namespace {

// A file opened on a standard descriptor that the caller left closed would receive what
// the tool prints. Opened the wrong way round, the descriptor refuses it as the closed
// one would.
void occupyStandardDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) == -1 && errno == EBADF) {
            static_cast<void>(open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}

int run(int argc, char** argv) {
    CommandLine line;
    if (const std::optional<int> status = readOptions(argc, argv, line)) {
        return *status;
    }
    openlog("zorv-label-manager", LOG_PID | LOG_NDELAY, LOG_DAEMON);
    return dispatch(line);
}

}  // namespace

int main(int argc, char** argv) {
    occupyStandardDescriptors();
    prepareOutput();
    return statusAfterOutput(run(argc, argv));
}
