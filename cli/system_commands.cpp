#include "cli/system_commands.h"

#include <cinttypes>
#include <map>
#include <string>
#include <sys/time.h>
#include <vector>

#include "base/handles.h"
#include "cli/label_manager.h"
#include "cli/number_conversion.h"
#include "cli/output.h"
#include "common/sm3_hash.h"

const std::map<std::string, std::vector<std::string>> testPolicies = {
    {"object_file", {"/etc/b", "/boot/config-6.6.10"}},
    {"object_recurfile", {"/home/*/desktop/*", "/home/tst/desktop/*"}},
    {"subject_file", {"/usr/sbin/tc", "/etc/pwd/config"}},
    {"subject_pkg", {"vim"}},
};

namespace {

int deriveLabel(const char* path, const char* verb, const char* newLabel,
                std::string (*derive)(const std::string&)) {
    if (path == nullptr) {
        printLine("The parameter is incorrect, the file path is empty...");
        return 1;
    }
    const std::string label = derive(path);
    if (label.empty()) {
        printLine("%s %s label failed...", path, verb);
        return 1;
    }
    printLine("%s %s label success, %s label: %s", path, verb, newLabel, label.c_str());
    return 0;
}

int printLookup(const char* name, const char* what, const char* failure,
                int (*look)(const char*, uint64_t*)) {
    uint64_t oid = 0;
    if (look(name, &oid) < 0) {
        printLine("%s", failure);
        return 1;
    }
    printLine("%s Oid:%016" PRIx64, what, oid);
    return 0;
}

void printPolicyItem(const std::string& kind, const std::string& item, const ZORV_ID& id) {
    if (kind == "subject_pkg" || kind == "object_pkg") {
        printLine("%s:%s %016" PRIx64, kind.c_str(), item.c_str(), id.package);
    } else {
        printLine("%s:%s %016" PRIx64 "-%016" PRIx64 "-%016" PRIx64, kind.c_str(), item.c_str(), id.package,
                  id.file, id.path);
    }
}

}  // namespace

int restoreLabel(const CommandOptions& options) {
    return deriveLabel(options.labelPath, "restore", "new", restoreSingleFileLabel);
}

int initLabel(const CommandOptions& options) {
    return deriveLabel(options.labelPath, "init", "init", restoreSingleFileInitLabel);
}

void labelWholeSystem(const char* root) {
    printLine("set the label for files begin, please wait...");
    timeval begin{};
    timeval end{};
    gettimeofday(&begin, nullptr);
    static_cast<void>(addTagFullSystem(root, {}));
    gettimeofday(&end, nullptr);
    const double seconds = (static_cast<double>(end.tv_sec - begin.tv_sec) * 1e6 +
                            static_cast<double>(end.tv_usec - begin.tv_usec)) /
                           1e6;
    printLine("set the label for files end, cost time = %.4f seconds", seconds);
}

int printModuleOid(const char* name) {
    return printLookup(name, "module", "get kernel module oid error..", getKernelModuleOid);
}

int printDeviceOid(const char* name) {
    return printLookup(name, "device", "get device oid error..", getDeviceOid);
}

int printPackageName(const char* hexadecimalId) {
    const MallocOwner<char> name(getPkgNameById(toUnsigned64(hexadecimalId, 16)));
    if (!name) {
        printLine("get pkg name by id error");
        return 1;
    }
    printLine("pkg name: %s", name.get());
    return 0;
}

void printSm3Value(const char* text) {
    printLine("SM3 Hash (last 64 bits): %016" PRIx64, getSM3HashLast64Bits(text));
}

int runPolicySelfTest() {
    std::map<std::string, std::map<std::string, std::vector<ZORV_ID>>> result;
    const int parsed = policies_parse(testPolicies, result);
    printLine("policies_parse test begin");
    if (parsed != 0) {
        printLine("policies_parse error!");
        return 1;
    }
    bool printedItem = false;
    for (const auto& [kind, items] : result) {
        for (const auto& [item, ids] : items) {
            for (const ZORV_ID& id : ids) {
                printPolicyItem(kind, item, id);
                printedItem = true;
            }
        }
    }
    printLine("policies_parse test end");
    printLine(printedItem ? "LabelSetStatus: %x" : "LabelSetStatus: %d", getLabelSetStatus());
    return 0;
}
