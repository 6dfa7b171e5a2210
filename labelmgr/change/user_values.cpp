#include "labelmgr/change/user_values.h"

#include "common/wildcard.h"
#include "labelmgr/change/change.h"
#include "labelmgr/change/session.h"
#include "labelmgr/model/operation_error.h"

namespace {

std::vector<ChangeStep> removalOf(const std::vector<UserRecord>& records, ChangeKind kind) {
    std::vector<ChangeStep> steps;
    steps.reserve(records.size());
    for (const UserRecord& record : records) {
        steps.push_back({kind, record.target, {}});
    }
    return steps;
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
    carryOut(store, context, {}, {{ChangeKind::kSet, std::string(name), id}});
}

void deletePackageId(const Context& context, std::string_view name) {
    std::optional<Store> store = openToChangeIfThere(context);
    if (!store || !store->packageIds().find(name)) {
        throw OperationError(std::string(name), "no package id has been set");
    }
    carryOut(*store, context, {}, {{ChangeKind::kDelete, std::string(name)}});
}

void clearPackageIds(const Context& context) {
    if (std::optional<Store> store = openToChangeIfThere(context)) {
        std::vector<PackageStep> packages;
        for (PackageId& package : store->packageIds().all()) {
            packages.push_back({ChangeKind::kClear, std::move(package.name)});
        }
        carryOut(*store, context, {}, packages);
    }
}
