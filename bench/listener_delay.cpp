// Runs the tool as a listener, makes changes in its store, and prints the time from the
// end of a change to its line, and the processor time of the listener while nothing
// changes. Usage: listener_delay TOOL FILE [CHANGES [IDLE-SECONDS]], with a store of its
// own in ZORV_LABEL_STATE_DIR and FILE on a file system that keeps labels.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "cli/label_manager.h"

namespace {

using Clock = std::chrono::steady_clock;

class Listener {
 public:
    explicit Listener(const char* tool) {
        int ends[2];
        if (pipe(ends) != 0 || (process = fork()) < 0) {
            throw std::runtime_error("no listener");
        }
        if (process == 0) {
            dup2(ends[1], STDOUT_FILENO);
            execl(tool, tool, "-S", nullptr);
            _exit(127);
        }
        close(ends[1]);
        output = ends[0];
    }
    ~Listener() {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
        close(output);
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // Whether the line of a change comes within the time. Lines of earlier changes are
    // passed over.
    bool prints(const std::string& change, std::chrono::milliseconds time) {
        const Clock::time_point deadline = Clock::now() + time;
        while (text.find(change + '\n') == std::string::npos) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd event{output, POLLIN, 0};
            if (left.count() <= 0 || poll(&event, 1, static_cast<int>(left.count())) <= 0) {
                return false;
            }
            char buffer[4096];
            const ssize_t size = read(output, buffer, sizeof(buffer));
            text.append(buffer, size > 0 ? static_cast<size_t>(size) : 0);
        }
        text.erase(0, text.find(change + '\n'));
        return true;
    }

    unsigned long long nanosecondsOnProcessor() const {
        unsigned long long time = 0;
        std::ifstream("/proc/" + std::to_string(process) + "/schedstat") >> time;
        return time;
    }

 private:
    pid_t process = -1;
    int output = -1;
    std::string text;
};

// Sets the TID of a file and answers the end of the listener's line about it.
std::string change(const char* file, uint32_t tid) {
    if (setFileTid(file, tid, 0) != 0) {
        throw std::runtime_error("a change failed; see the log");
    }
    char digits[10];
    std::snprintf(digits, sizeof(digits), " %08x", tid);
    return digits;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: listener_delay TOOL FILE [CHANGES [IDLE-SECONDS]]\n", stderr);
        return 1;
    }
    const char* file = argv[2];
    const int changes = argc > 3 ? std::atoi(argv[3]) : 500;
    const int idleSeconds = argc > 4 ? std::atoi(argv[4]) : 30;

    Listener listener(argv[1]);
    uint32_t tid = 1;
    while (!listener.prints(change(file, tid), std::chrono::milliseconds(100))) {
        ++tid;
    }
    std::vector<double> delays;
    for (int i = 0; i < changes; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));  // so that it sleeps again
        const std::string line = change(file, ++tid);
        const Clock::time_point committed = Clock::now();
        if (!listener.prints(line, std::chrono::seconds(10))) {
            throw std::runtime_error("a change is not reported");
        }
        delays.push_back(std::chrono::duration<double, std::milli>(Clock::now() - committed).count());
    }
    std::sort(delays.begin(), delays.end());
    std::printf("from a change's end to its line: median %.2f ms, longest of %zu %.2f ms (bound 50)\n",
                delays.at(delays.size() / 2), delays.size(), delays.back());

    const unsigned long long before = listener.nanosecondsOnProcessor();
    std::this_thread::sleep_for(std::chrono::seconds(idleSeconds));
    const auto used = static_cast<double>(listener.nanosecondsOnProcessor() - before);
    std::printf("idle listener: %.2f ms of processor time in %d s, %.4f %%\n", used / 1e6, idleSeconds,
                used / 1e7 / idleSeconds);
    return 0;
}
