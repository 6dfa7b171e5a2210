#include "tests/support/run.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/temporary_tree.h"

namespace {

// What a child writes, in memory, so that no amount of it blocks.
class Capture {
 public:
    ~Capture() { close(descriptor); }

    std::string text() const {
        std::string all(static_cast<size_t>(lseek(descriptor, 0, SEEK_END)), '\0');
        require(pread(descriptor, all.data(), all.size(), 0) == static_cast<ssize_t>(all.size()), "capture");
        return all;
    }

    const int descriptor = memfd_create("capture", 0);
};

}  // namespace

RunResult runInChild(const std::function<int()>& body) {
    const Capture out;
    const Capture err;
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        std::signal(SIGPIPE, SIG_DFL);
        dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
        dup2(out.descriptor, STDOUT_FILENO);
        dup2(err.descriptor, STDERR_FILENO);
        const int status = [&body]() noexcept { return body(); }();  // never back into the tests
        std::fflush(nullptr);
        _exit(status);
    }
    int status = 0;
    require(child > 0 && waitpid(child, &status, 0) == child, "child process");
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), out.text(), err.text()};
}

RunResult runTool(const std::vector<std::string>& words, const RunOptions& options) {
    return runInChild([&] {
        unsetenv("POSIXLY_CORRECT");
        for (const auto& [name, value] : options.environment) {
            setenv(name.c_str(), value.c_str(), 1);
        }
        if (options.prepare) {
            options.prepare();
        }
        std::string program = PROGRAM_DIRECTORY "/" + options.program;
        std::vector<char*> argv = {const_cast<char*>(options.program.c_str())};
#ifdef EMULATOR  // which takes the program's path behind the name that it gives to it
        argv.insert(argv.begin(), {const_cast<char*>(EMULATOR), const_cast<char*>("-0")});
        argv.push_back(program.data());
        const std::string executable = EMULATOR;
#else
        const std::string& executable = program;
#endif
        for (const std::string& word : words) {
            argv.push_back(const_cast<char*>(word.c_str()));
        }
        argv.push_back(nullptr);
        return execv(executable.c_str(), argv.data());
    });
}

RunResult runToolWithFake(const std::vector<std::string>& words, const std::string& script,
                          const RunOptions& options) {
    const Capture calls;
    RunOptions withFake = options;
    withFake.environment.insert(withFake.environment.end(),
                                {{"LD_LIBRARY_PATH", FAKE_DIRECTORY},
                                 {"ZORV_FAKE_CALLS", "/dev/fd/" + std::to_string(calls.descriptor)},
                                 {"ZORV_FAKE_ANSWERS", script}});
    RunResult result = runTool(words, withFake);
    result.calls = calls.text();
    return result;
}

bool holdsInChild(const std::function<bool()>& condition) {
    return runInChild([&condition] { return condition() ? 0 : 1; }).status == 0;
}
