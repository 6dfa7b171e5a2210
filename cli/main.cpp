#include <syslog.h>

#include "base/standard_descriptors.h"
#include "cli/command_options.h"
#include "cli/dispatch.h"
#include "cli/output.h"

namespace {

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
