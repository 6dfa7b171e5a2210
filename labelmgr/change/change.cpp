#include "labelmgr/change/change.h"

#include <atomic>

#include "labelmgr/change/change_plan.h"
#include "labelmgr/change/label_writer.h"
#include "labelmgr/change/recovery.h"
#include "labelmgr/files/in_chunks.h"
#include "labelmgr/model/operation_error.h"
#include "log/logger.h"

namespace {

// Sets and removes records, and answers what they replace.
std::vector<FormerRecord> changeRecords(Store& store, const std::vector<ChangeStep>& steps) {
    std::vector<FormerRecord> former;
    for (const ChangeStep& step : steps) {
        store.scan().noteChange(step.target);
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

void keepPending(Store& store, const std::vector<FormerRecord>& records, const ChangedFiles& files) {
    PendingTable pending = store.pending();
    for (const FormerRecord& record : records) {
        pending.add(record);
    }
    for (const ChangedFile& changed : files) {
        if (changed.isToBeWritten()) {
            pending.add(changed.file);
        }
    }
}

void tell(Store& store, const ChangePlan& plan) {
    FeedTable feed = store.feed();
    feed.trim();
    for (const ChangedFile& changed : plan.files) {
        feed.add(changed.messages);
    }
}

// Writes the labels of files that stand next to each other. A file that refuses its label
// and is not needed is left out, and not told. Answers how many.
size_t writeSome(LabelWriter& writer, ChangedFiles& files, size_t begin, size_t end) {
    size_t failed = 0;
    for (size_t i = begin; i < end; ++i) {
        ChangedFile& changed = files[i];
        try {
            if (changed.isToBeWritten()) {
                writer.write(changed);
            }
            continue;
        } catch (const FileGone&) {
            if (changed.isNeeded) {
                throw;
            }
        } catch (const FileRefuses& failure) {
            if (changed.isNeeded) {
                throw;
            }
            ZORV_LOG(error, "%s", failure.what());
            ++failed;
        }
        changed.messages.clear();
    }
    return failed;
}

void flushRightFiles(const Context& context, const ChangePlan& plan) {
    LabelWriter writer(context);
    for (const std::string& path : plan.rightFiles) {
        writer.noteRight(path);
    }
    writer.flush();
}

void writeLabels(Store& store, const Context& context, ChangePlan& plan) {
    Transaction transaction = store.begin();
    std::atomic<size_t> failed = 0;
    inChunks(plan.files.size(), [&](size_t begin, size_t end) {
        LabelWriter writer(context);
        failed += writeSome(writer, plan.files, begin, end);
        writer.flush();
    });
    plan.failed += failed;
    flushRightFiles(context, plan);
    tell(store, plan);
    store.pending().clear();
    transaction.commit();
}

}  // namespace

std::string carryOut(Store& store, const Context& context, const std::vector<ChangeStep>& steps) {
    ChangePlan plan;
    FailedChange ifItFails{{}, store.feed().last(), 0, plan.files};
    bool isBegun = false;
    try {
        Transaction transaction = store.begin();
        ifItFails.formerRecords = changeRecords(store, steps);
        plan = planFiles(store, context, steps);
        if (plan.writesLabels) {
            keepPending(store, ifItFails.formerRecords, plan.files);
        } else {  // the first commit is the only one
            flushRightFiles(context, plan);
            tell(store, plan);
        }
        for (const ChangedFile& changed : plan.files) {
            ifItFails.messages += changed.messages.size();
        }
        isBegun = true;
        transaction.commit();
        if (plan.writesLabels) {
            writeLabels(store, context, plan);
        }
    } catch (const std::exception&) {
        if (isBegun) {
            takeBackFailedChange(store, context, ifItFails);
        }
        throw;
    }
    if (plan.failed != 0) {
        throw PartlyDone(steps.front().target.text,
                         std::to_string(plan.failed) + " of its files did not take it; the others did");
    }
    return plan.lastValue;
}
