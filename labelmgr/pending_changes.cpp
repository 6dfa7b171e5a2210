#include "labelmgr/pending_changes.h"

#include <map>
#include <utility>
#include <vector>

#include "labelmgr/derived_label.h"
#include "labelmgr/operation_error.h"
#include "labelmgr/pattern_files.h"
#include "labelmgr/pinned_file.h"
#include "labelmgr/written_labels.h"
#include "log/logger.h"

namespace {

// What a change does to one file.
struct FileChange {
    const PendingChange* change;
    bool isTarget;  // the record is this file's own, not that of a pattern that it matches
    bool isRemoval;
};
using FileChanges = std::map<std::pair<Field, std::string>, FileChange>;

std::vector<std::string> filesOf(const Target& target) {
    return target.isPattern ? filesMatching(target.text) : std::vector<std::string>{target.text};
}

FileChanges filesConcerned(Store& store, const std::vector<PendingChange>& changes) {
    FileChanges files;
    for (const PendingChange& change : changes) {
        const Target& target = change.target;
        const bool isRemoval = target.field != Field::kWholeLabel && !store.userValue(target);
        for (const std::string& file : filesOf(target)) {
            files.try_emplace({target.field, file}, FileChange{&change, !target.isPattern, isRemoval});
        }
    }
    return files;
}

UserValues userValuesFor(const PendingChange& change) {
    return change.operation == kInitOperation ? UserValues::kIgnore : UserValues::kObserve;
}

struct Written {
    bool isNew;
    std::string value;  // as the message tells it
};

Written bringInLine(LabelDeriver& deriver, WrittenLabels& labels, Field field, const std::string& file,
                    UserValues userValues) {
    if (field == Field::kWholeLabel) {
        const Label label = deriver.label(file, userValues);
        return {labels.write(file, label), label.toString()};
    }
    const FieldValue value = deriver.value(field, file);
    return {labels.write(file, field, value), textOf(field, value)};
}

std::string applyChanges(Store& store, WrittenLabels& labels, const FileChanges& files) {
    std::string value;
    LabelDeriver deriver(&store, ownersFor(files.size()));
    for (const auto& [key, fileChange] : files) {
        const auto& [field, file] = key;
        try {
            const Written written =
                bringInLine(deriver, labels, field, file, userValuesFor(*fileChange.change));
            value = written.value;
            if (written.isNew || fileChange.isTarget) {
                store.addMessage("file", fileChange.change->operation + "_" + nameOf(field), file, value);
            }
        } catch (const FileGone&) {
            // A value cannot be set on a file that is gone; to take one away needs no file.
            if (fileChange.isTarget && !fileChange.isRemoval) {
                throw;
            }
        }
    }
    return value;
}

// Runs a transaction that writes labels. They go back to what they were when it fails.
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

void takeBackRecords(Store& store) {
    Transaction transaction = store.begin();
    for (const PendingChange& change : store.pendingChanges()) {
        store.restoreUserValue(change.target, change.previous);
    }
    store.dropPendingChanges();
    transaction.commit();
}

// After a failure that may have left the connection unusable.
void takeBackFailedChanges(Store& store) {
    try {
        try {
            takeBackRecords(store);
        } catch (const OperationError&) {  // told if a new connection cannot do it either
            store.reconnect();
            takeBackRecords(store);
        }
    } catch (const OperationError& failure) {
        ZORV_LOG(error, "the next command takes back the failed change: %s", failure.what());
    }
}

// Writes what now holds for files, one by one. A file that does not take it is logged and passed over.
void bringInLineOneByOne(Store& store, const std::vector<std::pair<Field, std::string>>& files) {
    WrittenLabels labels;
    LabelDeriver deriver(&store, ownersFor(files.size()));
    for (const auto& [field, file] : files) {
        try {
            bringInLine(deriver, labels, field, file, UserValues::kObserve);
        } catch (const FileGone&) {
            continue;  // nothing to bring in line
        } catch (const OperationError& failure) {
            ZORV_LOG(error, "%s", failure.what());
        }
    }
}

bool holdsNewValue(LabelDeriver& deriver, Field field, const std::string& file, const PendingChange& change) {
    const LabelBytes bytes = PinnedFile(file).label();
    if (!bytes) {
        return false;
    }
    if (field == Field::kWholeLabel) {
        return *bytes == encodeLabel(deriver.label(file, userValuesFor(change)));
    }
    return textOf(field, fieldOf(decodeLabel(file, *bytes), field)) ==
           textOf(field, deriver.value(field, file));
}

// Whether a change that was left had begun to write. One that had not may even have been told as failed, by a
// process that could not take its record back.
bool hasComeToFiles(Store& store, const FileChanges& files) {
    LabelDeriver deriver(&store, ownersFor(files.size()));
    for (const auto& [key, fileChange] : files) {
        try {
            if (holdsNewValue(deriver, key.first, key.second, *fileChange.change)) {
                return true;
            }
        } catch (const OperationError&) {
            continue;  // says nothing about the others
        }
    }
    return false;
}

void finishLeftChanges(Store& store) {
    const std::vector<PendingChange> changes = store.pendingChanges();
    FileChanges files;
    try {
        files = filesConcerned(store, changes);
    } catch (const OperationError& failure) {  // not found out what to finish
        ZORV_LOG(error, "an unfinished change was taken back: %s", failure.what());
    }
    if (!hasComeToFiles(store, files)) {
        takeBackRecords(store);
        return;
    }
    try {
        finishChanges(store);
    } catch (const OperationError& failure) {
        if (store.hasPendingChanges()) {
            throw;
        }
        // The dead process wrote some of the files.
        ZORV_LOG(error, "an unfinished change was taken back: %s", failure.what());
        std::vector<std::pair<Field, std::string>> concerned;
        for (const auto& [key, fileChange] : files) {
            if (key.first != Field::kWholeLabel) {
                concerned.push_back(key);
            }
        }
        bringInLineOneByOne(store, concerned);
    }
}

// The labelling and a change of one field may each have overwritten what the other wrote: whole labels are
// written.
void reapplyChangesDuringScan(Store& store) {
    std::vector<std::pair<Field, std::string>> files;
    for (const Target& target : store.changesDuringScan()) {
        try {
            for (std::string& file : filesOf(target)) {
                files.emplace_back(Field::kWholeLabel, std::move(file));
            }
        } catch (const OperationError& failure) {
            ZORV_LOG(error, "%s", failure.what());
        }
    }
    bringInLineOneByOne(store, files);
}

bool hasDeadScan(Store& store) {
    if (store.scan().status != ScanStatus::kRunning) {
        return false;
    }
    const auto directory = StateDirectory::open(StateDirectory::IfMissing::kAnswerNothing);
    return directory && !directory->isScanLocked();
}

}  // namespace

std::string finishChanges(Store& store) {
    try {
        std::string value;
        changeLabels(store, [&store, &value](WrittenLabels& labels) {
            const std::vector<PendingChange> changes = store.pendingChanges();
            value = applyChanges(store, labels, filesConcerned(store, changes));
            store.dropPendingChanges();
        });
        return value;
    } catch (const std::exception&) {
        takeBackFailedChanges(store);
        throw;
    }
}

bool hasLeftWork(Store& store) {
    return store.hasPendingChanges() || hasDeadScan(store);
}

void finishLeftWork(Store& store) {
    if (store.hasPendingChanges()) {
        finishLeftChanges(store);
    }
    if (hasDeadScan(store)) {
        Transaction transaction = store.begin();
        reapplyChangesDuringScan(store);
        store.setScan({ScanStatus::kInterrupted, 0});
        transaction.commit();
    }
}

void endScan(Store& store, ScanStatus status, const std::string& root, const std::string& summary) {
    Transaction transaction = store.begin();
    reapplyChangesDuringScan(store);
    store.setScan({status, 0});
    store.addMessage("scan", "end", root, summary);
    transaction.commit();
}
