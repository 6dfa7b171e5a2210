#include "labelmgr/change/recovery.h"

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

// Whether a commit that was told as failed shows all the same.
bool isSeen(Store& store, const FailedChange& change) {
    try {
        store.reconnect();
        const std::vector<FeedMessage> messages = store.feed().after(change.lastMessage, 1);
        return !messages.empty() && !messages.front().text.empty();
    } catch (const OperationError& failure) {
        ZORV_LOG(error, "%s", failure.what());
        return false;
    }
}

// On the same connection first: it writes over what its failed commit left in the
// journal.
bool tryPuttingRecordsBack(Store& store, const FailedChange& change) {
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
            return true;
        } catch (const OperationError& failure) {
            if (again) {
                ZORV_LOG(error, "the next command takes back the failed change: %s", failure.what());
            }
        }
    }
    return false;
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
    if (!tryPuttingRecordsBack(store, change) && isSeen(store, change)) {
        ZORV_LOG(error, "the change is told as failed, and yet it cannot be taken back");
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
