#include "labelmgr/port/process_context.h"

#include <cstdlib>
#include <sys/auxv.h>

#include "label/label.h"
#include "labelmgr/files/in_threads.h"
#include "labelmgr/model/message_text.h"
#include "labelmgr/policy/package_database.h"
#include "log/logger.h"

namespace {

constexpr unsigned int kMostThreadsByRequest = 64;

std::string configured(const char* variable, const char* standard) {
    const char* value = secure_getenv(variable);
    return value != nullptr && *value != '\0' ? value : standard;
}

PackagePrograms packagePrograms() {
    constexpr const char* kSystemPath = "/usr/sbin:/usr/bin:/sbin:/bin";
    if (getauxval(AT_SECURE) != 0) {
        return {kSystemPath, false};
    }
    const char* searchPath = std::getenv("PATH");
    return {searchPath != nullptr ? searchPath : kSystemPath, true};
}

}  // namespace

Context processContext() {
    return {configured("ZORV_LABEL_STATE_DIR", "/var/lib/zorv/label"),
            configured("ZORV_LABEL_POLICY_FILE", "/etc/zorv/label/policy.conf"), kLabelAttribute,
            systemPackages(packagePrograms())};
}

unsigned int scanThreads() {
    if (const char* requested = secure_getenv("ZORV_LABEL_THREADS")) {
        char* end = nullptr;
        const unsigned long number = std::strtoul(requested, &end, 10);
        if (*end == '\0' && number >= 1 && number <= kMostThreadsByRequest) {
            return static_cast<unsigned int>(number);
        }
        ZORV_LOG(warn, "ZORV_LABEL_THREADS is not a number from 1 to %u: %s", kMostThreadsByRequest,
                 asOneLine(requested).c_str());
    }
    return usefulThreads();
}
