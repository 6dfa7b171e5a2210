#include "labelmgr/change/done_log.h"

#include <cstdint>
#include <fstream>
#include <sys/types.h>
#include <unistd.h>

#include "base/hexadecimal.h"
#include "log/config_path.h"
#include "log/logger.h"

namespace {

// Who logged in, whatever user he became since; empty where the kernel does not keep it.
std::string loginUser() {
    uint32_t user = UINT32_MAX;
    std::ifstream("/proc/self/loginuid") >> user;
    return user == UINT32_MAX ? "" : " (logged in as " + std::to_string(user) + ")";
}

}  // namespace

std::string byWhom() {
    return "by user " + std::to_string(getuid()) + loginUser() + " in process " + std::to_string(getpid());
}

void logDone(const std::string& what) {
    if (access(kLogConfigPath, R_OK) == 0) {
        ZORV_LOG(info, "%s; %s", what.c_str(), byWhom().c_str());
    }
}

void logDone(const std::vector<ChangeStep>& steps, const std::vector<PackageStep>& packages,
             const std::string& lastValue, size_t files) {
    const size_t all = steps.size() + packages.size();
    const std::string more = all > 1 ? " and " + std::to_string(all - 1) + " more" : "";
    if (!steps.empty()) {
        const ChangeStep& first = steps.front();
        const std::string value = first.kind == ChangeKind::kSet ? textOf(first.value) : lastValue;
        logDone(operationOf(first.kind, first.target.field) + " " + first.target.text + " " + value + more +
                ", files: " + std::to_string(files));
    } else if (!packages.empty()) {
        const PackageStep& first = packages.front();
        logDone(packageOperationOf(first.kind) + " " + first.name +
                (first.kind == ChangeKind::kSet ? " " + hexadecimalOf(first.id) : "") + more);
    }
}
