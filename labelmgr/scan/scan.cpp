#include "labelmgr/scan/scan.h"

#include <chrono>
#include <csignal>
#include <optional>
#include <unistd.h>

#include "labelmgr/change/done_log.h"
#include "labelmgr/change/recovery.h"
#include "labelmgr/change/session.h"
#include "labelmgr/files/pinned_file.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/scan/label_snapshot.h"
#include "labelmgr/scan/label_visitor.h"
#include "labelmgr/scan/labelled_packages.h"
#include "labelmgr/scan/supervision.h"
#include "log/logger.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

// A registered scan: the lock that shows that it is alive, and whether all labels of the
// last one came to the disk.
struct Registration {
    UniqueFd alive;
    bool isLastOnDisk = false;
};

// Changes from here on are written again at its end.
Registration registerScan(const Context& context, LabelSnapshot& snapshot, const std::string& root) {
    Store store = openToChange(context);
    const ScanState last = store.scan().state();
    std::optional<UniqueFd> lock = store.directory().lockForScan();
    if (!lock) {
        throw OperationError("process " + std::to_string(last.process), "labels the whole system already");
    }
    if (root == "/") {
        forgetLabelledPackages(context);
    }
    Transaction transaction = store.begin();
    store.scan().set({ScanStatus::kRunning, getpid()});
    snapshot.readUserValues(store);
    transaction.commit();
    return {std::move(*lock), last.status == ScanStatus::kComplete};
}

// Work of an hour waits longer for others than a set does.
constexpr std::chrono::seconds kPatienceAtTheEnd{60};

void endScan(const Context& context, Facts& facts, ScanStatus status, const std::string& root,
             const std::string& summary) {
    Store store = openToChange(context, kPatienceAtTheEnd);
    Transaction transaction = store.begin();
    reapplyChangesDuringScan(store, context, facts, root);
    store.scan().set({status, 0});
    store.feed().trim();
    store.feed().add({changeMessage("scan", "end", root, summary)});
    transaction.commit();
}

// Whether the walk came to its end and all its labels to the disk.
bool walkAndFlush(TreeWalk& walk, LabelVisitor& visitor, const LabelSnapshot& snapshot, UniqueFd descriptor,
                  const std::string& root) {
    try {
        if (!snapshot.isLeftAlone(root)) {
            walk.run(std::move(descriptor), root, snapshot.below(snapshot.wholeSystem(), root));
        }
        visitor.flush();
        return true;
    } catch (const std::exception& failure) {
        ZORV_LOG(error, "%s", failure.what());
        return false;
    }
}

}  // namespace

unsigned long labelWholeTree(const Context& context, const std::string& root,
                             const std::vector<std::string>& skippedPaths, unsigned int threads) {
    const Clock::time_point begin = Clock::now();
    UniqueFd descriptor = TreeWalk::openRoot(root);
    StateDirectory::open(context.stateDirectory, StateDirectory::IfMissing::kCreate);  // to keep owners in
    const auto packages = root == "/" && skippedPaths.empty() ? context.packages->versions() : std::nullopt;
    Facts facts(context);
    LabelSnapshot snapshot(facts, root, skippedPaths);
    const Registration registration = registerScan(context, snapshot, root);
    ScanCounts counts;
    int signal = 0;
    {
        LabelVisitor visitor(context, snapshot, isOnReadOnlyFileSystem(descriptor.get()), counts,
                             !registration.isLastOnDisk);
        TreeWalk walk(visitor, threads);
        Supervision supervision(counts, [&walk] { walk.cancel(); });
        const bool isWhole = walkAndFlush(walk, visitor, snapshot, std::move(descriptor), root);
        supervision.stop();
        signal = supervision.receivedSignal();
        if (isWhole && signal == 0) {
            endScan(context, facts, ScanStatus::kComplete, root, std::to_string(counts.done()));
            keepLabelledPackages(context, packages, counts.failed != 0);
        } else {
            endScan(context, facts, ScanStatus::kInterrupted, root, "failed");
        }
        if (!isWhole) {
            return counts.failed + 1;
        }
    }
    ZORV_LOG(info, "%s: %lu labelled, %lu unchanged, %lu failed, %.1f seconds%s; %s", asOneLine(root).c_str(),
             counts.labelled.load(), counts.unchanged.load(), counts.failed.load(), secondsSince(begin),
             signal == 0 ? "" : ", interrupted by a signal", byWhom().c_str());
    if (signal != 0) {
        raise(signal);
    }
    return counts.failed;
}

int wholeTreeStatus(const Context& context) {
    std::optional<Store> store = Store::openToRead(context.stateDirectory);
    if (!store) {
        return static_cast<int>(ScanStatus::kNever);
    }
    const ScanStatus status = store->scan().state().status;
    const bool isDead = status == ScanStatus::kRunning && !store->directory().isScanLocked();
    return static_cast<int>(isDead ? ScanStatus::kInterrupted : status);
}
