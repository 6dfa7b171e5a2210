#pragma once

#include <optional>
#include <span>

enum class Action { Add = 0, Get = 1, Delete = 2, Restore = 3, Init = 4, Subscribe = 5, None = 6 };

// What the options of one run say. Texts are borrowed from the argument vector; null is
// "not given".
struct CommandOptions {
    Action action = Action::None;  // of several action options the last one holds
    int patternMatch = 0;          // 1: the file operands of set, delete and user-set query are patterns
    bool labelMode = false;        // whole labels of the operands
    const char* labelPath = nullptr;
    const char* inheritFlagArg = nullptr;
    const char* pkgIdArg = nullptr;
    const char* sidArg = nullptr;
    const char* tidArg = nullptr;
    const char* oidArg = nullptr;
    const char* pkgNameArg = nullptr;
    const char* topic = nullptr;
    bool recursive = false;
    bool userSet = false;
    const char* scanRoot = nullptr;
    const char* moduleName = nullptr;
    const char* deviceName = nullptr;
    const char* creatorOidArg = nullptr;  // accepted; no operation acts on it
    bool clear = false;
    bool batch = false;
};

// An option of the record that takes an argument.
using Selector = const char* CommandOptions::*;

// The words of a run, as the option parser left them.
struct CommandLine {
    CommandOptions options;
    std::span<char*> words;     // argv, program name included
    std::span<char*> operands;  // from the argument of the last option on: deliberately one word early

    // The word that a set command counts from the end of the line; 1 is the last one.
    const char* wordFromEnd(size_t n) const { return words[words.size() - n]; }
};

// Read by the label callbacks, which get a path and an attribute name only: work on a
// symbolic link itself.
extern bool noDereference;

// Reads all options into `line`. An answer is the exit status of a run that is over: the
// help or an SM3 value was printed (both act while options are still being read), or an
// option was wrong, which getopt_long has reported.
std::optional<int> readOptions(int argc, char** argv, CommandLine& line);
