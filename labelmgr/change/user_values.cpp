#include "labelmgr/change/user_values.h"

#include "base/hexadecimal.h"
#include "common/wildcard.h"
#include "labelmgr/change/change.h"
#include "labelmgr/change/done_log.h"
#include "labelmgr/change/session.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/policy/derived_label.h"
#include "log/logger.h"

namespace {

std::vector<ChangeStep> removalOf(const std::vector<UserRecord>& records, ChangeKind kind) {
    std::vector<ChangeStep> steps;
    steps.reserve(records.size());
    for (const UserRecord& record : records) {
        steps.push_back({kind, record.target, {}});
    }
    return steps;
}

void tellOfPackage(Store& store, const char* operation, std::string_view name, uint64_t id) {
    store.feed().add({changeMessage("package", operation, name, hexadecimalOf(id))});
}

// Changes package ids in one transaction. When its commit fails, what others may see of
// it all the same is put back.
template <typename Work>
void changePackageIds(Store& store, Work work) {
    const std::vector<PackageId> former = store.packageIds().all();
    const int64_t lastMessage = store.feed().last();
    size_t messages = 0;
    bool isBegun = false;
    try {
        Transaction transaction = store.begin();
        store.feed().trim();
        messages = work();
        isBegun = true;
        transaction.commit();
    } catch (const OperationError&) {
        if (!isBegun) {
            throw;
        }
        try {
            Transaction transaction = store.begin();
            for (const PackageId& present : store.packageIds().all()) {
                store.packageIds().remove(present.name);
            }
            for (const PackageId& package : former) {
                store.packageIds().set(package.name, package.id);
            }
            store.feed().withdraw(lastMessage, messages);
            transaction.commit();
        } catch (const OperationError& failure) {
            ZORV_LOG(error, "the failed change of package ids may hold: %s", failure.what());
        }
        throw;
    }
}

}  // namespace

void setUserValue(const Context& context, const Target& target, const FieldValue& value) {
    Store store = openToChange(context);
    carryOut(store, context, {{ChangeKind::kSet, target, value}});
}

void deleteUserValue(const Context& context, const Target& target) {
    std::optional<Store> store = openToChangeIfThere(context);
    const std::vector<UserRecord> records =
        store ? findUserValues(*store, target) : std::vector<UserRecord>();
    if (records.empty()) {
        throw OperationError(target.text, std::string("no ") + nameOf(target.field) + " has been set");
    }
    carryOut(*store, context, removalOf(records, ChangeKind::kDelete));
}

void clearUserValues(const Context& context, Field field) {
    if (std::optional<Store> store = openToChangeIfThere(context)) {
        const std::vector<UserRecord> records = store->userValues().all(field);
        if (!records.empty()) {
            carryOut(*store, context, removalOf(records, ChangeKind::kClear));
        }
    }
}

std::vector<UserRecord> findUserValues(Store& store, const Target& target) {
    std::vector<UserRecord> found;
    if (!target.isPattern) {
        if (const std::optional<UserValue> value = store.userValues().find(target)) {
            found.push_back({target, *value});
        }
        return found;
    }
    for (UserRecord& record : store.userValues().all(target.field)) {
        const std::string& text = record.target.text;
        if (record.target.isPattern ? text == target.text : matchesPattern(target.text, text)) {
            found.push_back(std::move(record));
        }
    }
    return found;
}

std::string deriveLabel(const Context& context, const std::string& path, ChangeKind kind) {
    Store store = openToChange(context);
    return carryOut(store, context, {{kind, {Field::kOid, false, path}, {}}});
}

void setPackageId(const Context& context, std::string_view name, uint64_t id) {
    Store store = openToChange(context);
    changePackageIds(store, [&] {
        store.packageIds().set(name, id);
        tellOfPackage(store, "set_id", name, id);
        return size_t{1};
    });
    logDone("set_id " + std::string(name) + " " + hexadecimalOf(id));
}

void deletePackageId(const Context& context, std::string_view name) {
    std::optional<Store> store = openToChangeIfThere(context);
    if (!store || !store->packageIds().find(name)) {
        throw OperationError(std::string(name), "no package id has been set");
    }
    changePackageIds(*store, [&] {
        store->packageIds().remove(name);
        tellOfPackage(*store, "del_id", name, packageIdOfName(std::string(name)));
        return size_t{1};
    });
    logDone("del_id " + std::string(name));
}

void clearPackageIds(const Context& context) {
    if (std::optional<Store> store = openToChangeIfThere(context)) {
        changePackageIds(*store, [&] {
            const std::vector<PackageId> packages = store->packageIds().all();
            for (const PackageId& package : packages) {
                store->packageIds().remove(package.name);
                tellOfPackage(*store, "clear_id", package.name, packageIdOfName(package.name));
            }
            return packages.size();
        });
        logDone("clear_id of all packages");
    }
}
