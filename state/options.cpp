#include "state/options.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <iterator>

#include "state/commands.h"
#include "state/output.h"

namespace {

constexpr size_t kAnyNumber = SIZE_MAX;  // of operands

constexpr Command kCommands[] = {
    {"apply", "[--check] [--keep-others] [--allow-missing] [--json] FILE", "CKMJq", 1, 1, runApply},
    {"backup", "FILE", "q", 1, 1, runBackup},
    {"check-policy", "[--json] [FILE]", "Jq", 0, 1, runCheckPolicy},
    {"explain", "[--json] PATH", "J", 1, 1, runExplain},
    {"export", "[FILE]", "q", 0, 1, runExport},
    {"label", "[--if-needed] ROOT... | --new-packages", "INJq", 0, kAnyNumber, runLabel},
    {"remove-pattern", "[-o] [-s] [-t] [-i] PATTERN", "ostiq", 1, 1, runRemovePattern},
    {"restore", "[--check] [--json] FILE", "CJq", 1, 1, runRestore},
    {"verify", "[--json] ROOT", "Jq", 1, 1, runVerify},
};

// Short letters are those of the short options.
constexpr option kLongOptions[] = {
    {"check", no_argument, nullptr, 'C'},
    {"keep-others", no_argument, nullptr, 'K'},
    {"allow-missing", no_argument, nullptr, 'M'},
    {"if-needed", no_argument, nullptr, 'I'},
    {"new-packages", no_argument, nullptr, 'N'},
    {"json", no_argument, nullptr, 'J'},
    {"quiet", no_argument, nullptr, 'q'},
    {"oid", no_argument, nullptr, 'o'},
    {"sid", no_argument, nullptr, 's'},
    {"tid", no_argument, nullptr, 't'},
    {"inherit-flag", no_argument, nullptr, 'i'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

struct FlagOption {
    int letter;
    bool Options::*flag;
};
constexpr FlagOption kFlagOptions[] = {
    {'C', &Options::isCheck},          {'K', &Options::keepsOthers}, {'M', &Options::allowsMissing},
    {'J', &Options::isJson},           {'q', &Options::isQuiet},     {'I', &Options::isIfNeeded},
    {'N', &Options::isForNewPackages},
};

struct FieldOption {
    int letter;
    Field field;
};
constexpr FieldOption kFieldOptions[] = {
    {'o', Field::kOid}, {'s', Field::kSid}, {'t', Field::kTid}, {'i', Field::kInheritFlag}};

std::string usage() {
    std::string text = "usage:\n";
    for (const Command& command : kCommands) {
        text.append("  zorv-label-state ")
            .append(command.name)
            .append(" ")
            .append(command.usage)
            .append("\n");
    }
    return text + "-q, --quiet  only the exit status; see zorv-label-state(8)\n";
}

void storeOption(Options& options, int letter) {
    for (const FlagOption& row : kFlagOptions) {
        if (row.letter == letter) {
            options.*row.flag = true;
        }
    }
    for (const FieldOption& row : kFieldOptions) {
        const auto end = options.fields.end();
        if (row.letter == letter && std::find(options.fields.begin(), end, row.field) == end) {
            options.fields.push_back(row.field);
        }
    }
}

const Command* commandNamed(const char* name) {
    for (const Command& command : kCommands) {
        if (std::strcmp(command.name, name) == 0) {
            return &command;
        }
    }
    std::fprintf(stderr, "zorv-label-state: no such command: %s\n", name);
    return nullptr;
}

}  // namespace

const Command* readOptions(int argc, char** argv, Options& options, Status& status) {
    status = Status::kFailed;
    const bool isHelp = argc > 1 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0);
    if (isHelp) {
        printBytes(usage());
        status = Status::kDone;
        return nullptr;
    }
    if (argc < 2) {
        std::fputs(usage().c_str(), stderr);
        return nullptr;
    }
    const Command* command = commandNamed(argv[1]);
    if (command == nullptr) {
        return nullptr;
    }
    optind = 2;
    for (int letter = 0; (letter = getopt_long(argc, argv, "qostih", kLongOptions, nullptr)) != -1;) {
        if (letter == 'h') {
            printBytes(usage());
            status = Status::kDone;
            return nullptr;
        }
        if (letter == '?') {
            return nullptr;
        }
        if (std::strchr(command->options, letter) == nullptr) {
            std::fprintf(stderr, "zorv-label-state: %s does not take %s\n", command->name, argv[optind - 1]);
            return nullptr;
        }
        storeOption(options, letter);
    }
    options.operands.assign(argv + optind, argv + argc);
    if (options.operands.size() < command->leastOperands || options.operands.size() > command->mostOperands) {
        std::fprintf(stderr, "usage: zorv-label-state %s %s\n", command->name, command->usage);
        return nullptr;
    }
    return command;
}
