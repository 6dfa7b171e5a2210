#include "labelmgr/change/change.h"

#include <atomic>

#include "base/hexadecimal.h"
#include "labelmgr/change/change_plan.h"
#include "labelmgr/change/done_log.h"
#include "labelmgr/change/label_writer.h"
#include "labelmgr/change/recovery.h"
#include "labelmgr/files/in_threads.h"
#include "labelmgr/model/operation_error.h"
#include "log/logger.h"

namespace {

constexpr size_t kMessagesAtOnce = 500;

std::vector<std::string> messagesOf(const std::vector<PackageStep>& packages) {
    std::vector<std::string> messages;
    for (const PackageStep& step : packages) {
        const uint64_t id = step.kind == ChangeKind::kSet ? step.id : packageIdOfName(step.name);
        messages.push_back(
            changeMessage("package", packageOperationOf(step.kind), step.name, hexadecimalOf(id)));
    }
    return messages;
}

void keepPending(Store& store, const std::vector<FormerRecord>& records, const ChangedFiles& files) {
    PendingTable pending = store.pending();
    for (const FormerRecord& record : records) {
        pending.add(record);
    }
    FilesToKeep toBeWritten;
    for (const ChangedFile& changed : files) {
        if (changed.isToBeWritten()) {
            toBeWritten.push_back(&changed.file);
        }
    }
    pending.add(toBeWritten);
}

void tell(Store& store, const ChangePlan& plan) {
    FeedTable feed = store.feed();
    feed.trim();
    std::vector<std::string> messages;
    for (const ChangedFile& changed : plan.files) {
        addMessages(changed, messages);
        if (messages.size() >= kMessagesAtOnce) {
            feed.add(messages);
            messages.clear();
        }
    }
    messages.insert(messages.end(), plan.packageMessages.begin(), plan.packageMessages.end());
    feed.add(messages);
}

// A file that is gone, or refuses its label, and is not needed is left out. False when it
// refuses.
bool write(LabelWriter& writer, ChangedFile& changed) {
    try {
        if (changed.isToBeWritten()) {
            writer.write(changed);
        }
        return true;
    } catch (const FileGone&) {
        if (changed.isNeeded) {
            throw;
        }
        changed.isLeftOut = true;
        return true;
    } catch (const FileRefuses& failure) {
        if (changed.isNeeded) {
            throw;
        }
        ZORV_LOG(error, "%s", failure.what());
        changed.isLeftOut = true;
        return false;
    }
}

// Takes back what was told of files that were left out after all.
void tellNoMore(Store& store, const ChangePlan& plan, int64_t lastMessage) {
    for (const ChangedFile& changed : plan.files) {
        const size_t count = changed.steps.size();
        if (changed.isLeftOut) {
            store.feed().empty(lastMessage, count);
        }
        lastMessage += static_cast<int64_t>(count);
    }
}

void flushRightFiles(const Context& context, const ChangePlan& plan) {
    LabelWriter writer(context);
    for (const std::string& path : plan.rightFiles) {
        writer.noteRight(path);
    }
    writer.flush();
}

// Of many files the database's part is done while others write the labels.
void writeLabels(Store& store, const Context& context, ChangePlan& plan,
                 const std::vector<PackageStep>& packages) {
    Transaction transaction = store.begin();
    const int64_t lastMessage = store.feed().last();
    std::atomic<size_t> failed = 0;
    const auto writeFiles = [&](Pieces& pieces) {
        LabelWriter writer(context);
        pieces.forEachNumber([&](size_t number) { failed += write(writer, plan.files[number]) ? 0 : 1; });
        writer.flush();
    };
    inThreads(plan.files.size(), writeFiles, [&] {
        changePackageIds(store, packages);
        store.pending().clear();  // first: the messages take its place in the database
        tell(store, plan);
    });
    plan.failed += failed;
    tellNoMore(store, plan, lastMessage);
    flushRightFiles(context, plan);
    transaction.commit();
}

}  // namespace

std::vector<FormerRecord> changeRecords(Store& store, const std::vector<ChangeStep>& steps) {
    const bool isScanRunning = store.scan().state().status == ScanStatus::kRunning;
    std::vector<FormerRecord> former;
    for (const ChangeStep& step : steps) {
        if (isScanRunning) {
            store.scan().noteChange(step.target);
        }
        if (writesWholeLabel(step.kind)) {
            continue;
        }
        former.push_back({step.target, store.userValues().find(step.target)});
        if (step.kind == ChangeKind::kSet) {
            store.userValues().set(step.target, step.value);
        } else {
            store.userValues().remove(step.target);
        }
    }
    return former;
}

std::vector<FormerPackageId> changePackageIds(Store& store, const std::vector<PackageStep>& packages) {
    std::vector<FormerPackageId> former;
    for (const PackageStep& step : packages) {
        former.push_back({step.name, store.packageIds().find(step.name)});
        if (step.kind == ChangeKind::kSet) {
            store.packageIds().set(step.name, step.id);
        } else {
            store.packageIds().remove(step.name);
        }
    }
    return former;
}

std::string carryOut(Store& store, const Context& context, const std::vector<ChangeStep>& steps,
                     const std::vector<PackageStep>& packages) {
    ChangePlan plan;
    FailedChange ifItFails{{}, {}, store.feed().last(), 0, plan.files};
    bool isBegun = false;
    try {
        Transaction transaction = store.begin();
        ifItFails.formerRecords = changeRecords(store, steps);
        ifItFails.formerPackages = changePackageIds(store, packages);
        plan = planFiles(store, context, steps);
        plan.packageMessages = messagesOf(packages);
        if (plan.writesLabels) {
            keepPending(store, ifItFails.formerRecords, plan.files);
            store.packageIds().putBack(ifItFails.formerPackages);
        } else {  // the first commit is the only one
            flushRightFiles(context, plan);
            tell(store, plan);
        }
        ifItFails.messages = packages.size();
        for (const ChangedFile& changed : plan.files) {
            ifItFails.messages += changed.steps.size();
        }
        isBegun = true;
        transaction.commit();
        if (plan.writesLabels) {
            writeLabels(store, context, plan, packages);
        }
    } catch (const std::exception&) {
        if (isBegun) {
            takeBackFailedChange(store, context, ifItFails);
        }
        throw;
    }
    logDone(steps, packages, plan.lastValue, plan.files.size());
    if (plan.failed != 0) {
        throw PartlyDone(
            steps.size() == 1 ? steps.front().target.text : std::to_string(steps.size()) + " changes",
            std::to_string(plan.failed) + " of its files did not take it; the others did");
    }
    return plan.lastValue;
}
