#include <algorithm>
#include <cstring>

#include "base/hexadecimal.h"
#include "cli/label_manager.h"
#include "labelmgr/change/session.h"
#include "labelmgr/change/user_values.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/policy/derived_label.h"
#include "labelmgr/policy/package_database.h"
#include "labelmgr/port/port_support.h"
#include "labelmgr/port/process_context.h"

// The port's operations on package ids.

namespace {

// What users set is found first. Throws OperationError when no package has the id.
std::string nameOfPackage(const Context& context, uint64_t id) {
    std::optional<Store> store = openToRead(context);
    const std::vector<PackageId> set = store ? store->packageIds().all() : std::vector<PackageId>();
    for (const PackageId& package : set) {
        if (package.id == id) {
            return package.name;
        }
    }
    for (const std::string& name : context.packages->installed()) {
        const bool isSet = std::any_of(set.begin(), set.end(),
                                       [&name](const PackageId& package) { return package.name == name; });
        if (!isSet && packageIdOfName(name) == id) {
            return name;
        }
    }
    throw OperationError(hexadecimalOf(id), "no package has this id");
}

std::optional<uint64_t> userSetId(const Context& context, const char* name) {
    std::optional<Store> store = openToRead(context);
    return store ? store->packageIds().find(name) : std::nullopt;
}

}  // namespace

int setPkgId(const char* name, uint64_t id) {
    return statusOf(__func__, [&] {
        if (*name == '\0' || std::strlen(name) >= sizeof(UserSetRecord::path)) {
            throw OperationError(name, "not a package name");
        }
        setPackageId(processContext(), name, id);
        return 0;
    });
}

int getPkgId(const char* name, uint64_t* id) {
    return statusOf(__func__, [&] {
        const Context context = processContext();
        const std::optional<uint64_t> set = userSetId(context, name);
        if (!set && !context.packages->isInstalled(name)) {
            throw OperationError(name, "no such package is installed");
        }
        *id = set ? *set : packageIdOfName(name);
        return 0;
    });
}

char* getPkgNameById(uint64_t id) {
    char* answer = nullptr;
    statusOf(__func__, [&] {
        answer = newText(nameOfPackage(processContext(), id));
        return 0;
    });
    return answer;
}

int delUserSetPkgId(const char* name) {
    return statusOf(__func__, [&] {
        deletePackageId(processContext(), name);
        return 0;
    });
}

int clearUserSetPkgId() {
    return statusOf(__func__, [] {
        clearPackageIds(processContext());
        return 0;
    });
}

int queryUserSetPkgId(const char* name, uint64_t* id) {
    return statusOf(__func__, [&] {
        const std::optional<uint64_t> set = userSetId(processContext(), name);
        if (set) {
            *id = *set;
        }
        return set ? 0 : kFailed;
    });
}

int showUserSetPkgId(UserSetRecord** records) {
    return statusOf(__func__, [&] {
        std::optional<Store> store = openToRead(processContext());
        const auto fill = [](const PackageId& source, UserSetRecord& record) {
            fillText(record, source.name);
            record.values[0] = source.id;
        };
        const auto list = [&] { return store->packageIds().all(); };
        return store ? answerRecords("package ids", list, records, fill) : 0;
    });
}
