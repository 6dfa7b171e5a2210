#include "cli/field_commands.h"

#include <cinttypes>
#include <cstring>

#include "cli/label_manager.h"
#include "cli/number_conversion.h"
#include "cli/output.h"

namespace {

constexpr int kBase = 16;
constexpr uint32_t kMaximumInheritFlag = 7;

bool hasWords(const CommandLine& line, size_t expected) {
    return line.words.size() == expected + (line.options.patternMatch != 0 ? 1U : 0U);
}

int refuseCount(const char* what) {
    printLine("set %s error, parameter error.", what);
    return 1;
}

int reportSet(const char* what, int status, const char* target) {
    printLine("set %s %s. %s", what, status == 0 ? "success" : "error", target);
    return status == 0 ? 0 : 1;
}

int setId(const CommandLine& line, const char* what, int (*set)(const char*, int, ZORV_ID)) {
    if (!hasWords(line, 7)) {
        return refuseCount(what);
    }
    ZORV_ID id{};
    id.package = toUnsigned64(line.wordFromEnd(3), kBase);
    id.file = toUnsigned64(line.wordFromEnd(2), kBase);
    id.path = toUnsigned64(line.wordFromEnd(1), kBase);
    const char* target = line.operands.front();
    return reportSet(what, set(target, line.options.patternMatch, id), target);
}

int printId(const char* path, const char* field, int (*get)(const char*, ZORV_ID*)) {
    ZORV_ID id{};
    if (get(path, &id) < 0) {
        printLine("get file %s error..", field);
        return 1;
    }
    printLine("%s %s:%016" PRIx64 "-%016" PRIx64 "-%016" PRIx64, path, field, id.package, id.file, id.path);
    return 0;
}

int printNumber(const char* path, const char* field, int (*get)(const char*, uint32_t*)) {
    uint32_t value = 0;
    if (get(path, &value) < 0) {
        printLine("get file %s error..", field);
        return 1;
    }
    printLine("%s %s:%08" PRIx32, path, field, value);
    return 0;
}

struct DeleteRow {
    Selector selector;
    const char* what;
    int (*remove)(const char* target, int patternMatch);
};

constexpr DeleteRow kDeleteRows[] = {
    {&CommandOptions::pkgIdArg, "pkg id", [](const char* name, int) { return delUserSetPkgId(name); }},
    {&CommandOptions::oidArg, "file oid", delFileOid},
    {&CommandOptions::sidArg, "file sid", delFileSid},
    {&CommandOptions::tidArg, "file tid", delFileTid},
    {&CommandOptions::inheritFlagArg, "file inheritFlag", delFileInheritFlag},
};

struct ClearRow {
    const char* word;
    const char* what;
    int (*clear)();
};

constexpr ClearRow kClearRows[] = {
    {"sid", "file sid", clearFileSid},      {"oid", "file oid", clearFileOid},
    {"tid", "file tid", clearFileTid},      {"inherit_flag", "file inherit_flag", clearFileInheritFlag},
    {"pkgid", "pkg id", clearUserSetPkgId},
};

bool clearField(const char* word) {
    for (const ClearRow& row : kClearRows) {
        if (std::strcmp(word, row.word) == 0) {
            printLine("clear %s %s.", row.what, row.clear() == 0 ? "success" : "error");
            return true;
        }
    }
    return false;
}

}  // namespace

int setOid(const CommandLine& line) {
    return setId(line, "file oid", setFileOid);
}

int setSid(const CommandLine& line) {
    return setId(line, "file sid", setFileSid);
}

int setTid(const CommandLine& line) {
    if (!hasWords(line, 5)) {
        return refuseCount("file tid");
    }
    const uint32_t tid = toUnsigned32(line.wordFromEnd(1), kBase);
    const char* target = line.operands.front();
    reportSet("file tid", setFileTid(target, tid, line.options.patternMatch), target);
    return 0;
}

int setInheritFlag(const CommandLine& line) {
    return hasWords(line, 5) ? setInheritFlagAfterTid(line) : refuseCount("file inheritFlag");
}

int setInheritFlagAfterTid(const CommandLine& line) {
    const uint32_t flag = toUnsigned32(line.wordFromEnd(1), kBase);
    if (flag > kMaximumInheritFlag) {
        printLine("set file inheritFlag error, the parameter value ranges from 0 to 7.");
        return 1;
    }
    const char* target = line.operands.front();
    return reportSet("file inherit_flag", setFileInheritFlag(target, flag, line.options.patternMatch),
                     target);
}

int setPackageId(const CommandLine& line) {
    if (line.words.size() != 5) {
        return refuseCount("pkgid");
    }
    const uint64_t id = toUnsigned64(line.words[4], kBase);
    const char* name = line.operands.front();
    reportSet("pkgid", setPkgId(name, id), name);
    return 0;
}

int printPackageId(const char* name) {
    uint64_t id = 0;
    if (getPkgId(name, &id) < 0) {
        printLine("get pkg id error..");
        return 1;
    }
    printLine("%s pkgid:%016" PRIx64, name, id);
    return 0;
}

int printOid(const char* path) {
    return printId(path, "oid", getFileOid);
}

int printSid(const char* path) {
    return printId(path, "sid", getFileSid);
}

int printTid(const char* path) {
    return printNumber(path, "tid", getFileTid);
}

int printInheritFlag(const char* path) {
    return printNumber(path, "inheritFlag", getFileInheritFlag);
}

void deleteFields(const CommandLine& line) {
    for (const DeleteRow& row : kDeleteRows) {
        if (line.options.*row.selector == nullptr) {
            continue;
        }
        if (row.selector == &CommandOptions::oidArg) {  // only this step echoes its operands first
            for (const char* target : line.operands) {
                printLine("%s", target);
            }
        }
        for (const char* target : line.operands) {
            const bool removed = row.remove(target, line.options.patternMatch) == 0;
            printLine(removed ? "delete %s success. %s" : "delete %s error: %s", row.what, target);
        }
    }
}

int clearFields(const CommandLine& line) {
    for (const char* word : line.operands) {
        if (!clearField(word)) {
            printLine("param error!!");
            printLine("the value of parameter -c is sid/oid/tid/inherit_flag/creator_oid/pkgid");
            return 1;
        }
    }
    return 0;
}
