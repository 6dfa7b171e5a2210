#include "cli/dispatch.h"

#include <syslog.h>

#include "cli/field_commands.h"
#include "cli/label_walkers.h"
#include "cli/output.h"
#include "cli/subscription.h"
#include "cli/system_commands.h"
#include "cli/user_set_queries.h"
#include "label/label.h"

namespace {

// The system log is closed on the normal end of an operation; other ends leave it to the
// end of the process.
int endNormally() {
    closelog();
    return 0;
}

int endNormallyUnlessFailed(int status) {
    return status == 0 ? endNormally() : status;
}

int refuseArguments() {
    printLine("arg error, please check the usage help");
    return 1;
}

int addTid(const CommandLine& line) {
    const int status = setTid(line);
    if (status != 0) {
        return status;
    }
    return line.options.inheritFlagArg != nullptr ? setInheritFlagAfterTid(line) : endNormally();
}

struct AddRow {
    Selector selector;
    int (*run)(const CommandLine& line);
};

constexpr AddRow kAddRows[] = {
    {&CommandOptions::pkgIdArg, setPackageId},
    {&CommandOptions::oidArg, setOid},
    {&CommandOptions::sidArg, setSid},
    {&CommandOptions::tidArg, addTid},
    {&CommandOptions::inheritFlagArg, setInheritFlag},
};

int runAdd(const CommandLine& line) {
    const CommandOptions& options = line.options;
    if (options.scanRoot != nullptr) {
        labelWholeSystem(options.scanRoot);
        return endNormally();
    }
    for (const AddRow& row : kAddRows) {
        if (options.*row.selector != nullptr) {
            return row.run(line);
        }
    }
    return options.creatorOidArg != nullptr ? endNormally() : refuseArguments();
}

void walkOperands(const CommandLine& line, const FileCallback& callback) {
    for (const char* operand : line.operands) {
        walkPattern(operand, kLabelAttribute, callback, line.options.recursive);
    }
}

struct GetRow {
    Selector selector;
    int (*print)(const char* argument);
    bool endsRun;
};

constexpr GetRow kGetRows[] = {
    {&CommandOptions::pkgIdArg, printPackageId, false},
    {&CommandOptions::pkgNameArg, printPackageName, true},
    {&CommandOptions::oidArg, printOid, false},
    {&CommandOptions::sidArg, printSid, false},
    {&CommandOptions::tidArg, printTid, false},
    {&CommandOptions::inheritFlagArg, printInheritFlag, false},
    {&CommandOptions::moduleName, printModuleOid, false},
    {&CommandOptions::deviceName, printDeviceOid, false},
};

bool namesSomethingToGet(const CommandOptions& options) {
    bool named = options.creatorOidArg != nullptr || options.batch || options.labelMode;
    for (const GetRow& row : kGetRows) {
        named = named || options.*row.selector != nullptr;
    }
    return named;
}

int runGet(const CommandLine& line) {
    const CommandOptions& options = line.options;
    if (isUserSetQuery(options)) {
        queryUserSet(options);
        return 0;
    }
    if (!namesSomethingToGet(options)) {
        return refuseArguments();
    }
    for (const GetRow& row : kGetRows) {
        const char* argument = options.*row.selector;
        if (argument == nullptr) {
            continue;
        }
        const int status = row.print(argument);
        if (status != 0 || row.endsRun) {
            return endNormallyUnlessFailed(status);
        }
    }
    if (options.batch) {
        const int status = runPolicySelfTest();
        if (status != 0) {
            return status;
        }
    }
    if (options.labelMode) {
        walkOperands(line, showLabel);
    }
    return endNormally();
}

int runDelete(const CommandLine& line) {
    printLine("================================");
    if (line.options.labelMode) {
        walkOperands(line, removeLabel);
    }
    deleteFields(line);
    return endNormallyUnlessFailed(line.options.clear ? clearFields(line) : 0);
}

}  // namespace

int dispatch(const CommandLine& line) {
    switch (line.options.action) {
        case Action::Add:
            return runAdd(line);
        case Action::Get:
            return runGet(line);
        case Action::Delete:
            return runDelete(line);
        case Action::Restore:
            return endNormallyUnlessFailed(restoreLabel(line.options));
        case Action::Init:
            return endNormallyUnlessFailed(initLabel(line.options));
        case Action::Subscribe:
            return printLabelChanges(line.options.topic);
        case Action::None:
            break;
    }
    return 1;
}
