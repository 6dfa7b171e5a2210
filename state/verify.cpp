#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <utility>
#include <vector>

#include "labelmgr/change/session.h"
#include "labelmgr/files/canonical_path.h"
#include "labelmgr/files/label_bytes.h"
#include "labelmgr/port/process_context.h"
#include "labelmgr/scan/label_snapshot.h"
#include "labelmgr/scan/label_visitor.h"
#include "state/commands.h"
#include "state/label_text.h"
#include "state/output.h"
#include "state/progress.h"

namespace {

struct Counts {
    std::atomic<unsigned long> right{0};
    std::atomic<unsigned long> wrong{0};
    std::atomic<unsigned long> failed{0};
};

using FileId = std::pair<dev_t, ino_t>;

FileId idOf(const EntryStatus& status) {
    return {status.device, status.inode};
}

// A file has one label, whatever number of names.
bool hasSeveralNames(const EntryStatus& status) {
    return status.links > 1 && !S_ISDIR(status.mode);
}

// Tells every file whose label is not what it should be. One with several names is told
// at the end, and only if its label is that of none of them.
class Comparison : public SnapshotVisitor {
 public:
    Comparison(const Context& in, const LabelSnapshot& labels, const Options& optionsOfRun,
               Counts& countsOfRun)
        : SnapshotVisitor(labels), context(in), options(optionsOfRun), counts(countsOfRun) {}

    void fail(const std::string& path, int reason) override {
        ++counts.failed;
        const std::lock_guard<std::mutex> lock(mutex);
        printRemark(options, asOneLine(path) + ": " + std::strerror(reason));
    }

    void tellNames() {
        for (const Name& name : names) {
            if (rightFiles.count(name.file) != 0) {
                ++counts.right;
            } else {
                tell(name.path, name.present, name.wanted);
            }
        }
    }

 private:
    void visitLabelled(const WalkEntry& entry, const Label& label) override {
        LabelBytes present;
        switch (const int reason = readLabelAt(entry.directory, entry.name, context.attribute, present)) {
            case 0:
                compare(entry, present, encodeLabel(label));
                break;
            case ENOTSUP:
                leaveFileSystem(entry);
                break;
            case ENOENT:
                break;  // gone meanwhile
            default:
                fail(entry.path, reason);
        }
    }

    void compare(const WalkEntry& entry, const LabelBytes& present, const std::string& wanted) {
        const bool isRight = present == wanted;
        counts.right += isRight ? 1 : 0;
        if (hasSeveralNames(entry.status) && present) {
            const std::lock_guard<std::mutex> lock(mutex);
            if (isRight) {
                rightFiles.insert(idOf(entry.status));
            } else {
                names.push_back({idOf(entry.status), entry.path, *present, wanted});
            }
        } else if (!isRight) {
            tell(entry.path, present, wanted);
        }
    }

    void tell(const std::string& path, const LabelBytes& present, const std::string& wanted) {
        ++counts.wrong;
        Json record;
        addName(record, "path", path);
        addLabel(record, "label", present);
        addLabel(record, "expected", wanted);
        const std::string text =
            asOneLine(path) + ": " + labelText(present) + ", should be " + labelText(wanted);
        const std::lock_guard<std::mutex> lock(mutex);
        printRecord(options, text, record);
    }

    void leaveFileSystem(const WalkEntry& entry) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (withoutAttributes.insert(entry.status.device).second) {
            printRemark(options, asOneLine(entry.path) +
                                     ": the file system has no attributes for labels and is left alone");
        }
    }

    const Context& context;
    const Options& options;
    Counts& counts;
    struct Name {
        FileId file;
        std::string path;
        std::string present;
        std::string wanted;
    };

    std::mutex mutex;
    std::set<dev_t> withoutAttributes;
    std::vector<Name> names;  // of files that have several, and another label than it has
    std::set<FileId> rightFiles;
};

// Answers the number of the last change.
int64_t readUserValues(const Context& context, LabelSnapshot& snapshot) {
    std::optional<Store> store = openToRead(context);
    if (!store) {
        return 0;
    }
    snapshot.readUserValues(*store);
    return store->feed().last();
}

int64_t lastChange(const Context& context) {
    std::optional<Store> store = openToRead(context);
    return store ? store->feed().last() : 0;
}

}  // namespace

Status runVerify(const Options& options) {
    const Context context = processContext();
    const std::string root = canonicalPath(options.operands.front().c_str(), Remote::kAllow);
    UniqueFd descriptor = TreeWalk::openRoot(root);
    Facts facts(context);
    LabelSnapshot snapshot(facts, root, {});
    const int64_t change = readUserValues(context, snapshot);
    Counts counts;
    if (!snapshot.isLeftAlone(root)) {
        const Progress progress(options, [&counts](double seconds) {
            const auto done = static_cast<double>(counts.right + counts.wrong + counts.failed);
            std::array<char, 64> text{};
            std::snprintf(text.data(), text.size(), "%.0f files, %.0f files/s", done, done / seconds);
            return std::string(text.data());
        });
        Comparison comparison(context, snapshot, options, counts);
        TreeWalk(comparison, scanThreads())
            .run(std::move(descriptor), root, snapshot.below(snapshot.wholeSystem(), root));
        comparison.tellNames();
    }
    if (lastChange(context) != change) {
        printRemark(options, "values were set meanwhile: of their files it may tell what holds no more");
    }
    const Json sum = {
        {"right", counts.right.load()}, {"wrong", counts.wrong.load()}, {"failed", counts.failed.load()}};
    printRecord(options,
                std::to_string(counts.right) + " right, " + std::to_string(counts.wrong) + " wrong, " +
                    std::to_string(counts.failed) + " failed",
                sum);
    return counts.failed != 0 ? Status::kFailed : counts.wrong != 0 ? Status::kDifferent : Status::kDone;
}
