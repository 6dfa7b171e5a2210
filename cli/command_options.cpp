#include "cli/command_options.h"

#include <getopt.h>

#include "cli/system_commands.h"
#include "cli/usage.h"

bool noDereference = false;

namespace {

constexpr const char* kShortOptions = "agdris:v:uo:m:t:n:f:p:q:k:e:l:c:bPRHL:ST:3:h";

// --del, --clear and --batch differ from -d, -c and -b in whether they take an argument,
// and stay so.
constexpr option kLongOptions[] = {
    {"add", no_argument, nullptr, 'a'},
    {"get", no_argument, nullptr, 'g'},
    {"del", required_argument, nullptr, 'd'},
    {"restore", no_argument, nullptr, 'r'},
    {"init", no_argument, nullptr, 'i'},
    {"scan", required_argument, nullptr, 's'},
    {"id", required_argument, nullptr, 'v'},
    {"user-set", no_argument, nullptr, 'u'},
    {"oid", required_argument, nullptr, 'o'},
    {"sid", required_argument, nullptr, 'm'},
    {"tid", required_argument, nullptr, 't'},
    {"inherit-flag", required_argument, nullptr, 'n'},
    {"creator-oid", required_argument, nullptr, 'f'},
    {"pkg-id", required_argument, nullptr, 'p'},
    {"pkg-name", required_argument, nullptr, 'q'},
    {"module", required_argument, nullptr, 'k'},
    {"device", required_argument, nullptr, 'e'},
    {"label", required_argument, nullptr, 'l'},
    {"clear", no_argument, nullptr, 'c'},
    {"help", no_argument, nullptr, 'h'},
    {"batch", required_argument, nullptr, 'b'},
    {"recursive", no_argument, nullptr, 'R'},
    {"dir-label", required_argument, nullptr, 'L'},
    {"no-dereference", no_argument, nullptr, 'H'},
    {"pattern-match", no_argument, nullptr, 'P'},
    {"subscribe", no_argument, nullptr, 'S'},
    {"topic", required_argument, nullptr, 'T'},
    {"sm3", required_argument, nullptr, '3'},
    {nullptr, 0, nullptr, 0},
};

struct ActionOption {
    int letter;
    Action action;
};

constexpr ActionOption kActionOptions[] = {
    {'a', Action::Add},     {'g', Action::Get},  {'d', Action::Delete},
    {'r', Action::Restore}, {'i', Action::Init}, {'S', Action::Subscribe},
};

struct TextOption {
    int letter;
    Selector field;
};

constexpr TextOption kTextOptions[] = {
    {'s', &CommandOptions::scanRoot},       {'o', &CommandOptions::oidArg},
    {'m', &CommandOptions::sidArg},         {'t', &CommandOptions::tidArg},
    {'n', &CommandOptions::inheritFlagArg}, {'f', &CommandOptions::creatorOidArg},
    {'p', &CommandOptions::pkgIdArg},       {'q', &CommandOptions::pkgNameArg},
    {'k', &CommandOptions::moduleName},     {'e', &CommandOptions::deviceName},
    {'l', &CommandOptions::labelPath},      {'T', &CommandOptions::topic},
};

void storeFlag(CommandOptions& options, int letter) {
    switch (letter) {
        case 'u':
            options.userSet = true;
            break;
        case 'c':
            options.clear = true;
            break;
        case 'b':
            options.batch = true;
            break;
        case 'R':
            options.recursive = true;
            break;
        case 'L':
            options.labelMode = true;
            options.recursive = true;
            break;
        case 'l':
            options.labelMode = true;
            break;
        case 'H':
            noDereference = true;
            break;
        case 'P':
            options.patternMatch = 1;
            break;
        default:
            break;  // an action, an option with a text, or -v, which is accepted and ignored
    }
}

void storeOption(CommandOptions& options, int letter, const char* argument) {
    for (const ActionOption& row : kActionOptions) {
        if (row.letter == letter) {
            options.action = row.action;
        }
    }
    for (const TextOption& row : kTextOptions) {
        if (row.letter == letter) {
            options.*row.field = argument;
        }
    }
    storeFlag(options, letter);
}

}  // namespace

std::optional<int> readOptions(int argc, char** argv, CommandLine& line) {
    if (argc <= 1) {
        printUsage();
        return 0;
    }
    int letter = 0;
    while ((letter = getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) != -1) {
        switch (letter) {
            case 'h':
                printUsage();
                return 0;
            case '3':
                printSm3Value(optarg);
                return 0;
            case '?':
                return 1;
            default:
                storeOption(line.options, letter, optarg);
        }
    }
    line.words = std::span(argv, static_cast<size_t>(argc));
    line.operands = line.words.subspan(static_cast<size_t>(optind - 1));
    return std::nullopt;
}
