#include "state/output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "labelmgr/model/operation_error.h"

namespace {

std::FILE* output = stdout;

}  // namespace

void prepareOutput() {
    const int descriptor = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    std::FILE* stream = descriptor >= 0 ? fdopen(descriptor, "w") : nullptr;
    if (stream != nullptr && dup2(STDERR_FILENO, STDOUT_FILENO) >= 0) {
        output = stream;
    }
}

void printBytes(std::string_view bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), output) != bytes.size()) {
        throw systemError("standard output");
    }
}

void printRecord(const Options& options, const std::string& text, const Json& record) {
    if (!options.isQuiet) {
        printBytes((options.isJson ? record.dump() : text) + '\n');
    }
}

void printRemark(const Options& options, const std::string& text) {
    if (!options.isQuiet) {
        std::fprintf(stderr, "zorv-label-state: %s\n", text.c_str());
    }
}

Status statusAfterOutput(Status status) {
    if (std::fflush(output) == 0) {
        return status;
    }
    std::fprintf(stderr, "zorv-label-state: standard output: %s\n", std::strerror(errno));
    return Status::kFailed;
}
