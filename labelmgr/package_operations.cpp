#include <map>
#include <optional>

#include "base/hexadecimal.h"
#include "cli/label_manager.h"
#include "labelmgr/derived_label.h"
#include "labelmgr/operation_error.h"
#include "labelmgr/packages.h"
#include "labelmgr/port_support.h"
#include "labelmgr/user_values.h"

// The port's operations on package ids. A package id is one transaction: no file changes with it.

int setPkgId(const char* name, uint64_t id) {
    return statusOf(__func__, [&] {
        if (*name == '\0' || std::strlen(name) >= sizeof(UserSetRecord::path)) {
            throw OperationError(name, "not a package name");
        }
        Store store = openUserValues();
        Transaction transaction = store.begin();
        store.setPackageId(name, id);
        store.addMessage("package", "set_id", name, hexadecimalOf(id));
        transaction.commit();
        return 0;
    });
}

int getPkgId(const char* name, uint64_t* id) {
    return statusOf(__func__, [&] {
        std::optional<Store> store = readUserValues();
        const std::optional<uint64_t> set = store ? store->packageId(name) : std::nullopt;
        if (!set && !isPackageInstalled(name)) {
            throw OperationError(name, "no such package is installed");
        }
        *id = set ? *set : packageIdOfName(name);
        return 0;
    });
}

char* getPkgNameById(uint64_t id) {
    char* answer = nullptr;
    statusOf(__func__, [&] {
        std::optional<Store> store = readUserValues();
        std::map<std::string, uint64_t> ids;
        for (const PackageId& set : store ? store->packageIds() : std::vector<PackageId>()) {
            ids.emplace(set.name, set.id);
            if (set.id == id) {
                answer = newText(set.name);
                return 0;
            }
        }
        for (const std::string& name : installedPackages()) {
            if (ids.count(name) == 0 && packageIdOfName(name) == id) {
                answer = newText(name);
                return 0;
            }
        }
        throw OperationError(hexadecimalOf(id), "no package has this id");
    });
    return answer;
}

int delUserSetPkgId(const char* name) {
    return statusOf(__func__, [&] {
        std::optional<Store> store = changeExistingUserValues();
        if (store) {
            Transaction transaction = store->begin();
            if (store->removePackageId(name)) {
                store->addMessage("package", "del_id", name, hexadecimalOf(packageIdOfName(name)));
                transaction.commit();
                return 0;
            }
        }
        throw OperationError(name, "no package id has been set");
    });
}

int clearUserSetPkgId() {
    return statusOf(__func__, [&] {
        std::optional<Store> store = changeExistingUserValues();
        if (!store) {
            return 0;
        }
        Transaction transaction = store->begin();
        for (const PackageId& set : store->packageIds()) {
            store->removePackageId(set.name);
            store->addMessage("package", "clear_id", set.name, hexadecimalOf(packageIdOfName(set.name)));
        }
        transaction.commit();
        return 0;
    });
}

int queryUserSetPkgId(const char* name, uint64_t* id) {
    return statusOf(__func__, [&] {
        std::optional<Store> store = readUserValues();
        const std::optional<uint64_t> set = store ? store->packageId(name) : std::nullopt;
        if (set) {
            *id = *set;
        }
        return set ? 0 : kFailed;
    });
}

int showUserSetPkgId(UserSetRecord** records) {
    return statusOf(__func__, [&] {
        std::optional<Store> store = readUserValues();
        const auto fill = [](const PackageId& source, UserSetRecord& record) {
            fillText(record, source.name);
            record.values[0] = source.id;
        };
        return store ? answerRecords(store->packageIds(), records, fill) : 0;
    });
}
