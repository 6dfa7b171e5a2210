#include "cli/output.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

int firstWriteError = 0;

// Large enough for the longest path and its label, so that each line is one write.
std::array<char, 16384> buffer;

}  // namespace

void prepareOutput() {
    std::setvbuf(stdout, buffer.data(), _IOFBF, buffer.size());
}

void printLine(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const bool printed =
        std::vprintf(format, arguments) >= 0 && std::putchar('\n') != EOF && std::fflush(stdout) == 0;
    va_end(arguments);
    if (!printed && firstWriteError == 0) {
        firstWriteError = errno;
    }
}

bool outputFailed() {
    return firstWriteError != 0;
}

int statusAfterOutput(int status) {
    if (!outputFailed()) {
        return status;
    }
    std::fprintf(stderr, "zorv-label-manager-tool: write error: %s\n", std::strerror(firstWriteError));
    return 1;
}
