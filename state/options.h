#pragma once

#include <optional>
#include <string>
#include <vector>

#include "labelmgr/model/field.h"

// What the words of one run say.
struct Options {
    bool isCheck = false;           // --check
    bool keepsOthers = false;       // --keep-others
    bool allowsMissing = false;     // --allow-missing
    bool isIfNeeded = false;        // --if-needed
    bool isForNewPackages = false;  // --new-packages
    bool isJson = false;            // --json
    bool isQuiet = false;           // --quiet
    std::vector<Field> fields;      // -o, -s, -t, -i
    std::vector<std::string> operands;
};

// Of the program.
enum class Status {
    kDone = 0,
    kFailed = 1,
    kDifferent = 2,  // something was changed, or is not as it should be
};

struct Command {
    const char* name;
    const char* usage;    // its arguments
    const char* options;  // the letters that it takes, see options.cpp
    size_t leastOperands;
    size_t mostOperands;
    Status (*run)(const Options& options);
};

// Reads the words behind the program's name. Answers nothing when the run is over: help
// was printed, or, after a line on standard error, the words are wrong, and then the
// status says so.
const Command* readOptions(int argc, char** argv, Options& options, Status& status);
