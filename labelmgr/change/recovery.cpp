#include "labelmgr/change/recovery.h"

#include <algorithm>

#include "labelmgr/change/change_plan.h"
#include "labelmgr/change/label_anew.h"
#include "labelmgr/model/operation_error.h"
#include "log/logger.h"

namespace {

void putRecordsBack(Store& store, const std::vector<FormerRecord>& records) {
    for (const FormerRecord& former : records) {
        if (former.value) {
            store.userValues().putBack({former.target, *former.value});
        } else {
            store.userValues().remove(former.target);
        }
    }
    store.pending().clear();
}

// A change and what is left of earlier ones.
void takeBackLeftChange(Store& store, const Context& context) {
    ChangedFiles files;
    for (PendingFile& file : store.pending().files()) {
        files.push_back({std::move(file)});
    }
    LabelWriter writer(context);
    const FilesToKeep left = writer.takeBack(files);
    writer.flush();
    Transaction transaction = store.begin();
    putRecordsBack(store, store.pending().records());
    store.pending().setLeftLabels(left);
    transaction.commit();
}

bool hasDeadScan(Store& store) {
    return store.scan().state().status == ScanStatus::kRunning && !store.directory().isScanLocked();
}

// What shows of a change whose commits were told as failed.
enum class Shown { kNothing, kUnfinished, kAll };

bool isAsBefore(Store& store, const FailedChange& change) {
    const auto isFormerRecord = [&](const FormerRecord& former) {
        const std::optional<UserValue> present = store.userValues().find(former.target);
        return present.has_value() == former.value.has_value() &&
               (!present || present->order == former.value->order);
    };
    const auto isFormerId = [&](const FormerPackageId& former) {
        return store.packageIds().find(former.name) == former.id;
    };
    return store.pending().isEmpty() &&
           std::all_of(change.formerRecords.begin(), change.formerRecords.end(), isFormerRecord) &&
           std::all_of(change.formerPackages.begin(), change.formerPackages.end(), isFormerId);
}

Shown whatShows(Store& store, const FailedChange& change) {
    try {
        store.reconnect();
        const std::vector<FeedMessage> messages = store.feed().after(change.lastMessage, 1);
        if (!messages.empty() && !messages.front().text.empty()) {
            return Shown::kAll;
        }
        return isAsBefore(store, change) ? Shown::kNothing : Shown::kUnfinished;
    } catch (const OperationError& failure) {
        ZORV_LOG(error, "%s", failure.what());
        return Shown::kUnfinished;
    }
}

// Answers why it cannot be done, or nothing. On the same connection first: it writes over
// what its failed commit left in the journal.
std::string putRecordsBack(Store& store, const FailedChange& change) {
    std::string reason;
    for (const bool again : {false, true}) {
        try {
            if (again) {
                store.reconnect();
            }
            Transaction transaction = store.begin();
            putRecordsBack(store, change.formerRecords);
            store.packageIds().putBack(change.formerPackages);
            store.feed().withdraw(change.lastMessage, change.messages);
            transaction.commit();
            return {};
        } catch (const OperationError& failure) {
            reason = failure.what();
        }
    }
    return reason;
}

}  // namespace

bool hasLeftWork(Store& store) {
    return store.isOfOlderVersion() || !store.pending().isEmpty() || store.pending().hasLeftLabels() ||
           hasDeadScan(store);
}

void finishWhatWasLeft(Store& store, const Context& context) {
    if (!store.pending().isEmpty() || store.pending().hasLeftLabels()) {
        takeBackLeftChange(store, context);
    }
    if (hasDeadScan(store)) {
        Transaction transaction = store.begin();
        Facts facts(context);
        reapplyChangesDuringScan(store, context, facts, "/");
        store.scan().set({ScanStatus::kInterrupted, 0});
        transaction.commit();
    }
}

void takeBackFailedChange(Store& store, const Context& context, const FailedChange& change) {
    LabelWriter writer(context);
    if (!writer.takeBack(change.files).empty()) {
        ZORV_LOG(error, "the next command takes back the failed change");
        return;
    }
    try {
        writer.flush();
    } catch (const OperationError& failure) {  // as before in memory, which is what there is
        ZORV_LOG(error, "%s", failure.what());
    }
    const std::string reason = putRecordsBack(store, change);
    const Shown shown = reason.empty() ? Shown::kNothing : whatShows(store, change);
    if (shown == Shown::kUnfinished) {
        ZORV_LOG(error, "the next command takes back the failed change: %s", reason.c_str());
    } else if (shown == Shown::kAll) {
        ZORV_LOG(error, "the change is told as failed, and yet it cannot be taken back: %s", reason.c_str());
        writer.writeAgain(change.files);
    }
}

void reapplyChangesDuringScan(Store& store, const Context& context, Facts& facts, const std::string& root) {
    const std::string prefix = root == "/" ? root : root + "/";
    std::vector<std::string> paths;
    for (const Target& target : store.scan().changes()) {
        try {
            for (SeenFile& file : filesOf(context, target).files) {
                if (file.path == root || file.path.rfind(prefix, 0) == 0) {
                    paths.push_back(std::move(file.path));
                }
            }
        } catch (const OperationError& failure) {
            ZORV_LOG(error, "%s", failure.what());
        }
    }
    labelAnew(store, context, facts, paths);
}
