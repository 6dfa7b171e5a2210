#include "labelmgr/user_values.h"

#include "common/wildcard.h"
#include "labelmgr/operation_error.h"
#include "labelmgr/pending_changes.h"

namespace {

// The first transaction of a change.
void recordRemovals(Store& store, const char* operation,
                    const std::vector<std::pair<Target, UserValue>>& values) {
    Transaction transaction = store.begin();
    for (const auto& [target, value] : values) {
        store.addPendingChange({operation, target, value});
        store.removeUserValue(target);
    }
    transaction.commit();
}

}  // namespace

Store openUserValues() {
    Store store = Store::openForWriting();
    finishLeftWork(store);
    return store;
}

std::optional<Store> changeExistingUserValues() {
    const bool exists = Store::openExisting().has_value();  // and closed again: a process has one connection
    return exists ? std::optional(openUserValues()) : std::nullopt;
}

std::optional<Store> readUserValues() {
    std::optional<Store> store = Store::openExisting();
    if (!store || !hasLeftWork(*store)) {
        return store;
    }
    store.reset();
    try {
        store = Store::openForWriting(std::chrono::seconds(0));
        finishLeftWork(*store);
        return store;
    } catch (const StoreBusy&) {  // so the change is not left: its process is at work on it
        return Store::openExisting();
    }
}

void setUserValue(const Target& target, const FieldValue& value) {
    Store store = openUserValues();
    {
        Transaction transaction = store.begin();
        store.addPendingChange({kSetOperation, target, store.userValue(target)});
        store.setUserValue(target, value);
        transaction.commit();
    }
    finishChanges(store);
}

void deleteUserValue(const Target& target) {
    std::optional<Store> store = changeExistingUserValues();
    const auto values = store ? findUserValues(*store, target) : std::vector<std::pair<Target, UserValue>>();
    if (values.empty()) {
        throw OperationError(target.text, std::string("no ") + nameOf(target.field) + " has been set");
    }
    recordRemovals(*store, kDeleteOperation, values);
    finishChanges(*store);
}

void clearUserValues(Field field) {
    std::optional<Store> store = changeExistingUserValues();
    const auto values = store ? store->userValues(field) : std::vector<std::pair<Target, UserValue>>();
    if (!values.empty()) {
        recordRemovals(*store, kClearOperation, values);
        finishChanges(*store);
    }
}

std::vector<std::pair<Target, UserValue>> findUserValues(Store& store, const Target& target) {
    std::vector<std::pair<Target, UserValue>> found;
    if (!target.isPattern) {
        if (const std::optional<UserValue> value = store.userValue(target)) {
            found.emplace_back(target, *value);
        }
        return found;
    }
    for (auto& record : store.userValues(target.field)) {
        const Target& recorded = record.first;
        if (recorded.isPattern ? recorded.text == target.text : matchesPattern(target.text, recorded.text)) {
            found.push_back(std::move(record));
        }
    }
    return found;
}

std::string restoreLabel(const std::string& path, UserValues userValues) {
    Store store = openUserValues();
    {
        Transaction transaction = store.begin();
        const bool observed = userValues == UserValues::kObserve;
        store.addPendingChange(
            {observed ? kRestoreOperation : kInitOperation, {Field::kWholeLabel, false, path}, {}});
        transaction.commit();
    }
    return finishChanges(store);
}
