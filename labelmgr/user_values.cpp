#include "labelmgr/user_values.h"

#include <map>

#include "common/wildcard.h"
#include "labelmgr/file_labels.h"
#include "labelmgr/operation_error.h"
#include "labelmgr/pattern_files.h"
#include "labelmgr/process_identity.h"
#include "log/logger.h"

namespace {

// The attributes that a change has written so far, so that it can be taken back.
class WrittenLabels {
 public:
    void write(const std::string& path, Field field, const FieldValue& value) {
        LabelBytes previous = readLabelBytes(path);
        Label label = previous ? decodeLabel(path, *previous) : Label();
        setField(label, field, value);
        replace(path, std::move(previous), label);
    }

    void write(const std::string& path, const Label& label) { replace(path, readLabelBytes(path), label); }

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
    void replace(const std::string& path, LabelBytes previous, const Label& label) {
        const std::vector<unsigned char> bytes = encodeLabel(label);
        if (previous != bytes) {
            writeLabelBytes(path, bytes);
            written.emplace_back(path, std::move(previous));
        }
    }

    std::vector<std::pair<std::string, LabelBytes>> written;
};

// What a change does to one file.
struct FileChange {
    std::string operation;
    bool mustExist;  // a value cannot be set on a file that is gone; taking one away needs no file
};
using FileChanges = std::map<std::pair<Field, std::string>, FileChange>;

constexpr size_t kManyFiles = 1000;
constexpr const char* kRestore = "restore";
constexpr const char* kInit = "init";

std::vector<std::string> filesOf(const Target& target) {
    return target.isPattern ? filesMatching(target.text) : std::vector<std::string>{target.text};
}

FileChanges filesConcerned(Store& store, const std::vector<PendingChange>& changes) {
    FileChanges files;
    for (const PendingChange& change : changes) {
        const Target& target = change.target;
        const bool mustExist =
            target.field == Field::kWholeLabel || (!target.isPattern && store.userValue(target).has_value());
        for (const std::string& file : filesOf(target)) {
            files.try_emplace({target.field, file}, FileChange{change.operation, mustExist});
        }
    }
    return files;
}

// Answers the new value as the message tells it.
std::string bringInLine(LabelDeriver& deriver, WrittenLabels& labels, Field field, const std::string& file,
                        bool byPolicyAlone) {
    if (field == Field::kWholeLabel) {
        const Label label = deriver.label(file, byPolicyAlone ? UserValues::kIgnore : UserValues::kObserve);
        labels.write(file, label);
        return label.toString();
    }
    const FieldValue value = deriver.value(field, file);
    labels.write(file, field, value);
    return textOf(field, value);
}

// Answers what the last file was given.
std::string applyChanges(Store& store, WrittenLabels& labels, const FileChanges& files) {
    std::string value;
    LabelDeriver deriver(&store, files.size());
    for (const auto& [key, change] : files) {
        const auto& [field, file] = key;
        try {
            value = bringInLine(deriver, labels, field, file, change.operation == kInit);
            store.addMessage("file", change.operation + "_" + nameOf(field), file, value);
        } catch (const FileGone&) {
            if (change.mustExist) {
                throw;
            }
        }
    }
    return value;
}

void takeBackRecords(Store& store) {
    Transaction transaction = store.begin();
    for (const PendingChange& change : store.pendingChanges()) {
        store.restoreUserValue(change.target, change.previous);
    }
    store.dropPendingChanges();
    transaction.commit();
}

void takeBackChanges(Store& store) {
    try {
        try {
            takeBackRecords(store);
        } catch (const OperationError&) {  // told if a new connection cannot do it either
            store.reconnect();
            takeBackRecords(store);
        }
    } catch (const OperationError& failure) {
        ZORV_LOG(error, "a failed change waits for the next command to finish it: %s", failure.what());
    }
}

// Runs the second transaction of a change. Every attribute goes back to what it was when it fails.
template <typename Work>
void changeLabels(Store& store, Work work) {
    WrittenLabels labels;
    try {
        Transaction transaction = store.begin();
        work(labels);
        transaction.commit();
    } catch (const std::exception&) {
        labels.takeBack();
        throw;
    }
}

std::string finishChanges(Store& store) {
    try {
        std::string value;
        changeLabels(store, [&store, &value](WrittenLabels& labels) {
            value = applyChanges(store, labels, filesConcerned(store, store.pendingChanges()));
            store.dropPendingChanges();
        });
        return value;
    } catch (const std::exception&) {
        takeBackChanges(store);
        throw;
    }
}

bool hasDeadScan(Store& store) {
    const ScanState scan = store.scan();
    return scan.status == ScanStatus::kRunning && !isAlive(scan.process);
}

// A labelling of the whole system works on what was set when it began, and may have overwritten what was set
// since.
template <typename AlsoDo>
void reapplyChangesDuringScan(Store& store, const ScanState& scan, AlsoDo alsoDo) {
    changeLabels(store, [&](WrittenLabels& labels) {
        LabelDeriver deriver(&store, kManyFiles);
        for (const Target& target : store.changesDuringScan()) {
            for (const std::string& file : filesOf(target)) {
                try {
                    bringInLine(deriver, labels, target.field, file, false);
                } catch (const FileGone&) {
                    continue;  // nothing to bring in line
                }
            }
        }
        store.setScan(scan);
        alsoDo(store);
    });
}

// What dead processes left. A change is either done or undone by this, and neither stops the caller's own
// work.
void finishLeftChanges(Store& store) {
    try {
        if (store.hasPendingChanges()) {
            finishChanges(store);
        }
    } catch (const OperationError& failure) {
        if (store.hasPendingChanges()) {
            throw;
        }
        ZORV_LOG(error, "an unfinished change was taken back: %s", failure.what());
    }
    if (hasDeadScan(store)) {
        reapplyChangesDuringScan(store, {ScanStatus::kInterrupted, {}}, [](Store&) {});
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
    const bool exists = Store::openExisting().has_value();  // and closed again: a process has one connection
    return exists ? std::optional(openUserValues()) : std::nullopt;
}

std::optional<Store> readUserValues() {
    std::optional<Store> store = Store::openExisting();
    if (store && (store->hasPendingChanges() || hasDeadScan(*store))) {
        store.reset();
        return openUserValues();
    }
    return store;
}

void setUserValue(const Target& target, const FieldValue& value) {
    Store store = openUserValues();
    {
        Transaction transaction = store.begin();
        store.addPendingChange({"set", target, store.userValue(target)});
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
    recordRemovals(*store, "del", values);
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
        const char* operation = userValues == UserValues::kObserve ? kRestore : kInit;
        store.addPendingChange({operation, {Field::kWholeLabel, false, path}, std::nullopt});
        transaction.commit();
    }
    return finishChanges(store);
}

void endScan(Store& store, const ScanState& scan, const std::string& root, const std::string& summary) {
    reapplyChangesDuringScan(
        store, scan, [&root, &summary](Store& ended) { ended.addMessage("scan", "end", root, summary); });
}
