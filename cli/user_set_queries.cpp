#include "cli/user_set_queries.h"

#include <cinttypes>
#include <cstring>
#include <span>

#include "base/handles.h"
#include "cli/label_manager.h"
#include "cli/output.h"

namespace {

struct FileQueryRow {
    Selector selector;
    const char* field;       // in the line of a record and of an empty answer
    const char* failedName;  // in the line of a failure
    bool isId;
    int (*showAll)(UserSetRecord** records);
    int (*query)(const char* pathOrPattern, UserSetRecord** records, int patternMatch);
};

constexpr FileQueryRow kFileQueries[] = {
    {&CommandOptions::oidArg, "oid", "oid", true, showUserSetFileOid, queryUserSetFileOid},
    {&CommandOptions::sidArg, "sid", "sid", true, showUserSetFileSid, queryUserSetFileSid},
    {&CommandOptions::tidArg, "tid", "tid", false, showUserSetFileTid, queryUserSetFileTid},
    {&CommandOptions::inheritFlagArg, "inherit_flag", "inherit flag", false, showUserSetFileInheritFlag,
     queryUserSetFileInheritFlag},
};

bool asksForAll(const char* argument) {
    return std::strcmp(argument, "--all") == 0;
}

void printPackage(const char* name, uint64_t id) {
    printLine("%s, pkgid : 0x%016" PRIx64, name, id);
}

void printFileRecord(const FileQueryRow& row, const UserSetRecord& record) {
    const uint64_t(&values)[3] = record.values;
    if (row.isId) {
        printLine("%s, %s : 0x%016" PRIx64 "-0x%016" PRIx64 "-0x%016" PRIx64, record.path, row.field,
                  values[0], values[1], values[2]);
    } else {
        printLine("%s, %s : 0x%08" PRIx64, record.path, row.field, values[0]);
    }
}

void queryFiles(const FileQueryRow& row, const char* argument, int patternMatch) {
    UserSetRecord* answer = nullptr;
    const int count =
        asksForAll(argument) ? row.showAll(&answer) : row.query(argument, &answer, patternMatch);
    if (count == 0) {
        printLine("No %s has been set for any file.", row.field);
    } else if (count < 0) {
        printLine("query user set %s failed, count = %d", row.failedName, count);
    } else {
        const MallocOwner<UserSetRecord> owner(answer);
        for (const UserSetRecord& record : std::span(answer, static_cast<size_t>(count))) {
            printFileRecord(row, record);
        }
    }
}

void queryAllPackages() {
    UserSetRecord* answer = nullptr;
    const int count = showUserSetPkgId(&answer);
    if (count == 0) {
        printLine("No package id has been set.");
    } else if (count < 0) {
        printLine("Failed to show the user setting id, count = %d", count);
    } else {
        const MallocOwner<UserSetRecord> owner(answer);
        for (const UserSetRecord& record : std::span(answer, static_cast<size_t>(count))) {
            printPackage(record.path, record.values[0]);
        }
    }
}

void queryPackage(const char* name) {
    uint64_t id = 0;
    if (queryUserSetPkgId(name, &id) == 0) {
        printPackage(name, id);
    } else {
        printLine("No id has been set for the %s package", name);
    }
}

}  // namespace

bool isUserSetQuery(const CommandOptions& options) {
    bool named = options.pkgIdArg != nullptr;
    for (const FileQueryRow& row : kFileQueries) {
        named = named || options.*row.selector != nullptr;
    }
    return options.userSet && named;
}

void queryUserSet(const CommandOptions& options) {
    if (options.pkgIdArg != nullptr) {
        if (asksForAll(options.pkgIdArg)) {
            queryAllPackages();
        } else {
            queryPackage(options.pkgIdArg);
        }
        return;
    }
    for (const FileQueryRow& row : kFileQueries) {
        if (options.*row.selector != nullptr) {
            queryFiles(row, options.*row.selector, options.patternMatch);
            return;
        }
    }
}
