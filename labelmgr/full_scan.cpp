#include "labelmgr/full_scan.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "labelmgr/file_labels.h"
#include "labelmgr/label_attribute_at.h"
#include "labelmgr/label_snapshot.h"
#include "labelmgr/operation_error.h"
#include "labelmgr/pending_changes.h"
#include "labelmgr/tree_walk.h"
#include "labelmgr/user_values.h"
#include "log/logger.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int kMostThreads = 8;
constexpr unsigned int kMostThreadsByRequest = 64;
constexpr size_t kLargestLabel = 81;

struct Counts {
    std::atomic<unsigned long> labelled{0};
    std::atomic<unsigned long> unchanged{0};
    std::atomic<unsigned long> failed{0};

    unsigned long done() const { return labelled + unchanged + failed; }
};

class LabelVisitor : public TreeVisitor {
 public:
    LabelVisitor(const LabelSnapshot& labelSnapshot, Counts& countsOfRun)
        : snapshot(labelSnapshot), counts(countsOfRun) {}

    std::shared_ptr<const WalkState> enter(const std::string& path,
                                           const std::shared_ptr<const WalkState>& parent) override {
        const auto rules = std::static_pointer_cast<const LabelSnapshot::Directory>(parent);
        return snapshot.isExcluded(*rules, path) ? nullptr : snapshot.below(rules, path);
    }

    bool visit(const WalkEntry& entry, const WalkState& state) override {
        const auto& rules = static_cast<const LabelSnapshot::Directory&>(state);
        const bool isDirectoryItself = *entry.name == '\0';
        auto mode = static_cast<mode_t>(DTTOIF(entry.type));
        if (!isDirectoryItself && (entry.type == DT_REG || entry.type == DT_UNKNOWN)) {
            struct stat status {};
            if (fstatat(entry.directory, entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
                failUnlessGone(entry, errno);
                return false;
            }
            mode = status.st_mode;
        }
        if (!isDirectoryItself && S_ISDIR(mode)) {
            return true;
        }
        if (isDirectoryItself || !snapshot.isExcluded(rules, entry.path)) {
            writeLabel(entry, snapshot.label(rules, entry.path, mode));
        }
        return false;
    }

    void fail(const std::string& path, int reason) override {
        ++counts.failed;
        ZORV_LOG(error, "%s: %s", asOneLine(path).c_str(), std::strerror(reason));
    }

 private:
    void writeLabel(const WalkEntry& entry, const Label& label) {
        std::array<unsigned char, kLargestLabel> wanted{};
        std::array<unsigned char, kLargestLabel> present{};
        const size_t size = label.serializeToBuffer(wanted.data(), wanted.size());
        const ssize_t got = getLabelAt(entry.directory, entry.name, present.data(), present.size());
        if (got == static_cast<ssize_t>(size) &&
            std::equal(wanted.begin(), wanted.begin() + got, present.begin())) {
            ++counts.unchanged;
        } else if ((got < 0 && errno != ENODATA && errno != ERANGE) ||
                   setLabelAt(entry.directory, entry.name, wanted.data(), size) != 0) {
            failUnlessGone(entry, errno);
        } else {
            ++counts.labelled;
        }
    }

    void failUnlessGone(const WalkEntry& entry, int reason) {
        if (reason == ENOTSUP) {
            warnOfFileSystem(entry);
        } else if (reason != ENOENT) {
            fail(entry.path, reason);
        }
    }

    void warnOfFileSystem(const WalkEntry& entry) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (withoutAttributes.insert(entry.device).second) {
            ZORV_LOG(warn, "%s: the file system has no attributes for labels and is left alone",
                     asOneLine(entry.path).c_str());
        }
    }

    const LabelSnapshot& snapshot;
    Counts& counts;
    std::mutex mutex;
    std::set<dev_t> withoutAttributes;
};

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

// A line on standard error that is written over as long as the object lives; nothing unless that is a
// terminal.
class Progress {
 public:
    explicit Progress(const Counts& countsOfRun) : counts(countsOfRun) {
        if (isatty(STDERR_FILENO) == 0) {
            return;
        }
        try {
            writer = std::thread([this] { write(); });
        } catch (const std::system_error&) {  // the work is worth doing unwatched
        }
    }
    ~Progress() {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            ended = true;
        }
        changed.notify_all();
        if (writer.joinable()) {
            writer.join();
            std::fputs("\r\033[K", stderr);
        }
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

 private:
    void write() {
        constexpr std::chrono::milliseconds kPause{500};
        std::unique_lock<std::mutex> lock(mutex);
        while (!changed.wait_for(lock, kPause, [this] { return ended; })) {
            const auto done = static_cast<double>(counts.done());
            std::fprintf(stderr, "\r%.0f files, %.0f files/s\033[K", done, done / secondsSince(begin));
        }
    }

    const Counts& counts;
    Clock::time_point begin = Clock::now();
    std::mutex mutex;
    std::condition_variable changed;
    bool ended = false;
    std::thread writer;
};

unsigned int threadCount() {
    const char* requested = secure_getenv("ZORV_LABEL_THREADS");
    if (requested != nullptr) {
        char* end = nullptr;
        const unsigned long number = std::strtoul(requested, &end, 10);
        if (*end == '\0' && number >= 1 && number <= kMostThreadsByRequest) {
            return static_cast<unsigned int>(number);
        }
        ZORV_LOG(warn, "ZORV_LABEL_THREADS is not a number from 1 to %u: %s", kMostThreadsByRequest,
                 requested);
    }
    return std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads);
}

// A registered run: what it works on, and the lock that shows that it is alive. Changes from here on are
// brought in line at its end.
struct Run {
    UniqueFd lock;
    LabelSnapshot snapshot;
};

Run beginRun(const std::string& root, const std::vector<std::string>& skippedPaths) {
    Store store = openUserValues();
    std::optional<UniqueFd> lock = StateDirectory::open(StateDirectory::IfMissing::kCreate)->lockForScan();
    if (!lock) {
        throw OperationError("process " + std::to_string(store.scan().process),
                             "labels the whole system already");
    }
    Transaction transaction = store.begin();
    store.setScan({ScanStatus::kRunning, getpid()});
    Run run{std::move(*lock), LabelSnapshot(store, root, skippedPaths)};
    transaction.commit();
    return run;
}

bool isLeftAlone(const LabelSnapshot& snapshot, std::string path) {
    const auto rules = snapshot.wholeSystem();
    while (!snapshot.isExcluded(*rules, path)) {
        if (path == "/") {
            return false;
        }
        path.resize(std::max<size_t>(path.rfind('/'), 1));
    }
    return true;
}

}  // namespace

unsigned long labelWholeTree(const std::string& root, const std::vector<std::string>& skippedPaths) {
    const Clock::time_point begin = Clock::now();
    UniqueFd descriptor = TreeWalk::openRoot(root);
    digestOf(root);  // or nothing would be labelled
    Counts counts;
    const Run run = beginRun(root, skippedPaths);
    LabelVisitor visitor(run.snapshot, counts);
    try {
        const Progress progress(counts);
        if (!isLeftAlone(run.snapshot, root)) {
            TreeWalk(visitor, threadCount())
                .run(std::move(descriptor), root, run.snapshot.below(run.snapshot.wholeSystem(), root));
        }
    } catch (const std::exception& failure) {
        ZORV_LOG(error, "%s", failure.what());
        Store store = openUserValues();
        endScan(store, ScanStatus::kInterrupted, root, "failed");
        return counts.failed + 1;
    }
    Store store = openUserValues();
    endScan(store, ScanStatus::kComplete, root, std::to_string(counts.done()));
    ZORV_LOG(info, "%s: %lu labelled, %lu unchanged, %lu failed, %.1f seconds", asOneLine(root).c_str(),
             counts.labelled.load(), counts.unchanged.load(), counts.failed.load(), secondsSince(begin));
    return counts.failed;
}

int wholeTreeStatus() {
    const auto directory = StateDirectory::open(StateDirectory::IfMissing::kAnswerNothing);
    std::optional<Store> store = Store::openExisting();
    if (!store) {
        return static_cast<int>(ScanStatus::kNever);
    }
    const ScanStatus status = store->scan().status;
    const bool isDead = status == ScanStatus::kRunning && !directory->isScanLocked();
    return static_cast<int>(isDead ? ScanStatus::kInterrupted : status);
}
