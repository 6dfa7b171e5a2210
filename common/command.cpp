#include "common/command.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/handles.h"
#include "log/logger.h"

namespace {

constexpr size_t kPieceSize = 1023;

// A child that is waited for whatever happens, so that no exception leaves a zombie.
class Child {
 public:
    explicit Child(pid_t childPid) : pid(childPid) {}
    ~Child() { wait(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // The status as waitpid() gives it; 0, like a success, when the system has thrown it
    // away.
    int wait() {
        int status = 0;
        while (pid > 0 && waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        pid = -1;
        return status;
    }

 private:
    pid_t pid;
};

std::vector<char*> argumentsOf(const std::string& path, const std::vector<std::string>& args) {
    std::vector<char*> arguments;
    arguments.reserve(args.size() + 2);
    arguments.push_back(const_cast<char*>(path.c_str()));
    for (const std::string& argument : args) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    return arguments;
}

// The child's side: only what is safe after a fork in a process with threads. Both ends
// of the pipe close themselves on execve(); but an end that is descriptor 1 already, as
// in a caller without a standard output, is not duplicated and has to stay open.
[[noreturn]] void runProgram(const char* path, char* const* arguments, int output) {
    const int prepared = output == STDOUT_FILENO ? fcntl(output, F_SETFD, 0) : dup2(output, STDOUT_FILENO);
    if (prepared >= 0) {
        // Not every library opens its files with O_CLOEXEC; the log's is no affair of the
        // program.
        close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
        execve(path, arguments, environ);
    }
    _exit(1);
}

pid_t startProgram(const std::string& path, const std::vector<char*>& arguments, int output) {
    const pid_t pid = fork();
    if (pid == 0) {
        runProgram(path.c_str(), arguments.data(), output);
    }
    return pid;
}

// One byte at a time, because fgets() loses what it has read when a signal interrupts it.
int readByte(std::FILE* stream) {
    for (;;) {
        const int byte = getc_unlocked(stream);
        if (byte != EOF || ferror_unlocked(stream) == 0 || errno != EINTR) {
            return byte;
        }
        clearerr_unlocked(stream);
    }
}

std::vector<std::string> readPieces(std::FILE* stream) {
    std::vector<std::string> pieces;
    std::string piece;
    const auto finish = [&pieces, &piece] {
        pieces.emplace_back(piece.c_str());  // up to its first NUL
        if (!pieces.back().empty() && pieces.back().back() == '\n') {
            pieces.back().pop_back();
        }
        piece.clear();
    };
    for (int byte = readByte(stream); byte != EOF; byte = readByte(stream)) {
        piece.push_back(static_cast<char>(byte));
        if (byte == '\n' || piece.size() == kPieceSize) {
            finish();
        }
    }
    if (!piece.empty()) {
        finish();
    }
    return pieces;
}

}  // namespace

std::vector<std::string> executeCommand(const std::string& path, const std::vector<std::string>& args) {
    if (path.empty()) {
        ZORV_LOG(error, "Command path is empty.");
        return {};
    }
    const std::vector<char*> arguments = argumentsOf(path, args);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        ZORV_LOG(error, "pipe failed: %s", std::strerror(errno));
        return {};
    }
    UniqueFd input(ends[0]);
    UniqueFd output(ends[1]);
    const pid_t pid = startProgram(path, arguments, output.get());
    if (pid < 0) {
        ZORV_LOG(error, "fork failed: %s", std::strerror(errno));
        return {};
    }
    Child child(pid);
    output.reset();
    UniqueStream stream(fdopen(input.get(), "r"));
    if (stream == nullptr) {
        ZORV_LOG(error, "fdopen failed: %s", std::strerror(errno));
        input.reset();
        return {};
    }
    input.release();
    std::vector<std::string> lines = readPieces(stream.get());
    stream.reset();
    const int status = child.wait();
    if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
        ZORV_LOG(error, "Command failed [%d]: %s", WEXITSTATUS(status), path.c_str());
        return {};
    }
    if (WIFSIGNALED(status)) {
        ZORV_LOG(error, "Command killed by signal %d: %s", WTERMSIG(status), path.c_str());
        return {};
    }
    return lines;
}

bool commandExists(const std::string& name) {
    const char* searchPath = std::getenv("PATH");
    if (searchPath == nullptr) {
        return false;
    }
    std::istringstream fields(searchPath);
    for (std::string field; std::getline(fields, field, ':');) {
        field.append("/").append(name);
        struct stat entry {};
        if (stat(field.c_str(), &entry) == 0 && (entry.st_mode & S_IXUSR) != 0) {
            return true;
        }
    }
    return false;
}
