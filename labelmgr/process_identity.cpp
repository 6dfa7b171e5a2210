#include "labelmgr/process_identity.h"

#include <cerrno>
#include <fstream>
#include <signal.h>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

struct StatLine {
    char state = 0;
    int64_t startTime = 0;
};

// Fields 3 and 22. The name in field 2 may hold anything, and ends at the last parenthesis.
StatLine parseStatLine(const std::string& text) {
    constexpr int kFieldsBetween = 18;
    StatLine line;
    const size_t nameEnd = text.rfind(')');
    if (nameEnd == std::string::npos) {
        return line;
    }
    std::istringstream fields(text.substr(nameEnd + 1));
    std::string skipped;
    fields >> line.state;
    for (int i = 0; i < kFieldsBetween; ++i) {
        fields >> skipped;
    }
    fields >> line.startTime;
    return line;
}

// All zero when there is no such process or /proc cannot be read.
StatLine statLineOf(int64_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::ostringstream text;
    text << file.rdbuf();
    return parseStatLine(text.str());
}

}  // namespace

ProcessIdentity thisProcess() {
    const int64_t id = getpid();
    return {id, statLineOf(id).startTime};
}

bool isAlive(const ProcessIdentity& process) {
    if (kill(static_cast<pid_t>(process.id), 0) != 0 && errno == ESRCH) {
        return false;
    }
    const StatLine line = statLineOf(process.id);
    const bool hasEnded = line.state == 'Z' || line.state == 'X';
    return line.startTime == 0 || (line.startTime == process.startTime && !hasEnded);
}
