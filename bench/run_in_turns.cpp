// Runs commands in turns, so that whatever else the machine does falls on all of them,
// and prints for each the median of its wall times and the ratio to the first command's.
// Output is thrown away; a command that fails ends it all. Usage: run_in_turns ROUNDS
// COMMAND... [-- COMMAND...]...
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <spawn.h>

namespace {

struct Command {
    std::vector<char*> words;
    std::vector<double> times;  // milliseconds
};

std::vector<Command> readCommands(char** words) {
    std::vector<Command> commands(1);
    for (; *words != nullptr; ++words) {
        if (std::strcmp(*words, "--") == 0) {
            commands.emplace_back();
        } else {
            commands.back().words.push_back(*words);
        }
    }
    for (Command& command : commands) {
        command.words.push_back(nullptr);
    }
    return commands;
}

double millisecondsOf(const Command& command, const posix_spawn_file_actions_t& redirections) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    pid_t pid = -1;
    int status = 0;
    const int failure =
        posix_spawnp(&pid, command.words[0], &redirections, nullptr, command.words.data(), environ);
    if (failure != 0 || waitpid(pid, &status, 0) != pid || status != 0) {
        std::fprintf(stderr, "run_in_turns: %s: %s\n", command.words[0],
                     failure != 0 ? std::strerror(failure) : "failed");
        std::exit(1);
    }
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    constexpr int kWarmUps = 10;
    const int rounds = argc > 2 ? std::atoi(argv[1]) : 0;
    std::vector<Command> commands = rounds > 0 ? readCommands(argv + 2) : std::vector<Command>();
    if (commands.empty()) {
        std::fputs("usage: run_in_turns ROUNDS COMMAND... [-- COMMAND...]...\n", stderr);
        return 1;
    }
    posix_spawn_file_actions_t redirections;
    posix_spawn_file_actions_init(&redirections);
    posix_spawn_file_actions_addopen(&redirections, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&redirections, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    for (int round = -kWarmUps; round < rounds; ++round) {
        for (Command& command : commands) {
            const double time = millisecondsOf(command, redirections);
            if (round >= 0) {
                command.times.push_back(time);
            }
        }
    }
    posix_spawn_file_actions_destroy(&redirections);
    const std::vector<double>& reference = commands.front().times;
    for (Command& command : commands) {
        std::vector<double>& times = command.times;
        std::sort(times.begin(), times.end());
        const size_t middle = times.size() / 2;
        std::printf("median %.2f ms, ratio %.2f; fastest %.2f ms, ratio %.2f:", times[middle],
                    times[middle] / reference[middle], times[0], times[0] / reference[0]);
        for (size_t i = 0; command.words[i] != nullptr; ++i) {
            std::printf(" %s", command.words[i]);
        }
        std::puts("");
    }
}
