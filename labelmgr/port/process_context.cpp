#include "labelmgr/port/process_context.h"

#include <cstdlib>
#include <string_view>
#include <sys/auxv.h>
#include <unistd.h>

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

// Variables and a user's own settings that lead dpkg-query or rpm to another database.
bool mayNameAnotherDatabase() {
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        const std::string_view name = *variable;
        if (name.starts_with("DPKG_") || name.starts_with("RPM_")) {
            return true;
        }
    }
    const char* home = std::getenv("HOME");
    return home != nullptr && (access((std::string(home) + "/.rpmmacros").c_str(), F_OK) == 0 ||
                               access((std::string(home) + "/.config/rpm/macros").c_str(), F_OK) == 0);
}

PackagePrograms packagePrograms() {
    constexpr const char* kSystemPath = "/usr/sbin:/usr/bin:/sbin:/bin";
    if (getauxval(AT_SECURE) != 0) {
        return {kSystemPath, false, false};
    }
    const char* searchPath = std::getenv("PATH");
    return {searchPath != nullptr ? searchPath : kSystemPath, true, mayNameAnotherDatabase()};
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
