#include <cstdio>
#include <exception>

#include "base/standard_descriptors.h"
#include "log/logger.h"
#include "state/options.h"
#include "state/output.h"

// What goes wrong is told on standard error, and logged as the label manager logs it.
namespace {

Status run(const Command& command, const Options& options) {
    try {
        return command.run(options);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "zorv-label-state: %s\n", failure.what());
        Logger::getInstance().error(command.name, __LINE__, "%s", failure.what());
        return Status::kFailed;
    }
}

}  // namespace

int main(int argc, char** argv) {
    occupyStandardDescriptors();
    prepareOutput();
    Options options;
    Status status = Status::kDone;
    if (const Command* command = readOptions(argc, argv, options, status)) {
        status = run(*command, options);
    }
    return static_cast<int>(statusAfterOutput(status));
}
