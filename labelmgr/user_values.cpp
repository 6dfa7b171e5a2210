#include "labelmgr/user_values.h"

#include "labelmgr/derived_label.h"
#include "labelmgr/file_labels.h"
#include "labelmgr/operation_error.h"
#include "log/logger.h"

namespace {

// The attributes that a change has written so far, so that it can be taken back.
class WrittenLabels {
 public:
    void write(const std::string& path, Field field, const FieldValue& value) {
        LabelBytes previous = readLabelBytes(path);
        Label label = previous ? decodeLabel(path, *previous) : Label();
        setField(label, field, value);
        const std::vector<unsigned char> bytes = encodeLabel(label);
        if (previous != bytes) {
            writeLabelBytes(path, bytes);
            written.emplace_back(path, std::move(previous));
        }
    }

    void takeBack() {
        for (auto label = written.rbegin(); label != written.rend(); ++label) {
            try {
                writeLabelBytes(label->first, label->second);
            } catch (const OperationError& failure) {
                ZORV_LOG(error, "the label could not be put back: %s", failure.what());
            }
        }
        written.clear();
    }

 private:
    std::vector<std::pair<std::string, LabelBytes>> written;
};

void applyChange(Store& store, LabelDeriver& deriver, WrittenLabels& labels, const PendingChange& change) {
    const Target& target = change.target;
    try {
        const FieldValue value = deriver.value(target.field, target.text);
        labels.write(target.text, target.field, value);
        store.addMessage("file", change.operation + "_" + nameOf(target.field), target.text,
                         textOf(target.field, value));
    } catch (const FileGone&) {
        // A record of a file that is gone can be taken away; one cannot be made.
        if (store.userValue(target)) {
            throw;
        }
    }
}

void takeBackChanges(Store& store) {
    try {
        Transaction transaction = store.begin();
        for (const PendingChange& change : store.pendingChanges()) {
            store.restoreUserValue(change.target, change.previous);
        }
        store.dropPendingChanges();
        transaction.commit();
    } catch (const OperationError& failure) {
        ZORV_LOG(error, "a failed change waits for the next command to finish it: %s", failure.what());
    }
}

// The second transaction of a change. Everything goes back to what it was when it fails.
void finishChanges(Store& store) {
    WrittenLabels labels;
    try {
        Transaction transaction = store.begin();
        const std::vector<PendingChange> changes = store.pendingChanges();
        LabelDeriver deriver(store, changes.size());
        for (const PendingChange& change : changes) {
            applyChange(store, deriver, labels, change);
        }
        store.dropPendingChanges();
        transaction.commit();
    } catch (const std::exception&) {
        labels.takeBack();
        takeBackChanges(store);
        throw;
    }
}

// What a dead process left. Its change is either done or undone by this, and neither stops the caller's own
// work.
void finishLeftChanges(Store& store) {
    if (!store.hasPendingChanges()) {
        return;
    }
    try {
        finishChanges(store);
    } catch (const OperationError& failure) {
        if (store.hasPendingChanges()) {
            throw;
        }
        ZORV_LOG(error, "an unfinished change was taken back: %s", failure.what());
    }
}

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
    finishLeftChanges(store);
    return store;
}

std::optional<Store> changeExistingUserValues() {
    return Store::openExisting() ? std::optional(openUserValues()) : std::nullopt;
}

std::optional<Store> readUserValues() {
    std::optional<Store> store = Store::openExisting();
    if (store && store->hasPendingChanges()) {
        store.reset();
        return openUserValues();
    }
    return store;
}

void setUserValue(Field field, const std::string& path, const FieldValue& value) {
    Store store = openUserValues();
    const Target target{field, false, path};
    {
        Transaction transaction = store.begin();
        store.addPendingChange({"set", target, store.userValue(target)});
        store.setUserValue(target, value);
        transaction.commit();
    }
    finishChanges(store);
}

void deleteUserValue(Field field, const std::string& path) {
    const Target target{field, false, path};
    std::optional<Store> store = changeExistingUserValues();
    const std::optional<UserValue> value = store ? store->userValue(target) : std::nullopt;
    if (!value) {
        throw OperationError(path, std::string("no ") + nameOf(field) + " has been set");
    }
    recordRemovals(*store, "del", {{target, *value}});
    finishChanges(*store);
}

void clearUserValues(Field field) {
    std::optional<Store> store = changeExistingUserValues();
    const auto values = store ? store->userValues(field) : std::vector<std::pair<Target, UserValue>>();
    if (!values.empty()) {
        recordRemovals(*store, "clear", values);
        finishChanges(*store);
    }
}
