#include "labelmgr/change/change_plan.h"

#include <algorithm>
#include <set>
#include <sys/resource.h>

#include "labelmgr/files/in_threads.h"
#include "labelmgr/model/operation_error.h"
#include "log/logger.h"

namespace {

// Each pin is a descriptor.
size_t mostPins() {
    constexpr rlim_t kMostPins = 256;
    rlimit limit{};
    const bool isTold = getrlimit(RLIMIT_NOFILE, &limit) == 0;
    return isTold ? static_cast<size_t>(std::min(kMostPins, limit.rlim_cur / 4)) : 0;
}

// What a step does to one file.
struct FileStep {
    const ChangeStep* step;
    bool isTarget;  // the record is this file's own, not that of a pattern that it matches
};
using FileSteps = std::vector<FileStep>;

bool isAboutTheSame(const ChangeStep& left, const ChangeStep& right) {
    return writesWholeLabel(left.kind) == writesWholeLabel(right.kind) &&
           (writesWholeLabel(left.kind) || left.target.field == right.target.field);
}

// Of several steps about one field of one file, one is enough: what counts is what the
// store says.
void addStep(FileSteps& steps, const FileStep& added) {
    for (FileStep& present : steps) {
        if (isAboutTheSame(*present.step, *added.step)) {
            if (added.isTarget && !present.isTarget) {
                present = added;
            }
            return;
        }
    }
    steps.push_back(added);
}

// A file, what is done to it, and how it was found.
struct PlannedFile {
    SeenFile seen;
    FileSteps steps = {};
    bool isLookedAt = false;
    std::unique_ptr<PinnedFile> pin = nullptr;
};

// Sorted by path. Those that patterns found have been looked at.
std::deque<PlannedFile> filesOfSteps(const Context& context, const std::vector<ChangeStep>& steps,
                                     size_t& failed) {
    std::vector<std::pair<SeenFile, FileStep>> found;
    for (const ChangeStep& step : steps) {
        FoundFiles files = filesOf(context, step.target);
        failed += files.unreadable;
        for (SeenFile& file : files.files) {
            found.emplace_back(std::move(file), FileStep{&step, !step.target.isPattern});
        }
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& left, const auto& right) { return left.first.path < right.first.path; });
    std::deque<PlannedFile> planned;
    for (auto& [file, step] : found) {
        if (planned.empty() || planned.back().seen.path != file.path) {
            planned.push_back({std::move(file), {}, step.step->target.isPattern});
        }
        addStep(planned.back().steps, step);
    }
    return planned;
}

// A few are pinned; of more it is enough to have seen them.
void lookAtFiles(const Context& context, std::deque<PlannedFile>& files) {
    const bool arePinned = files.size() <= mostPins();
    const auto look = [&](FilePinner& pinner, PlannedFile& file) {
        if (arePinned) {
            file.pin = pinner.pinAndSee(file.seen);
        } else if (!file.isLookedAt) {
            pinner.see(file.seen);
        }
    };
    const auto lookAtPieces = [&](Pieces& pieces) {
        FilePinner pinner(context);
        pieces.forEachNumber([&](size_t number) { look(pinner, files[number]); });
    };
    inThreads(files.size(), lookAtPieces, [] {});
}

// A value cannot be set on a file that is gone; to take one away needs no file.
bool needsFile(const FileSteps& steps) {
    return std::any_of(steps.begin(), steps.end(), [](const FileStep& entry) {
        return entry.isTarget && entry.step->needsFile && entry.step->kind != ChangeKind::kDelete &&
               entry.step->kind != ChangeKind::kClear;
    });
}

class FilePlanner {
 public:
    // Of one single file every failure is that of the change.
    FilePlanner(const Context& in, LabelDeriver& deriverToUse, ChangePlan& planToFill, bool isSingle)
        : context(in), deriver(deriverToUse), plan(planToFill), isSingleFile(isSingle) {}

    void add(PlannedFile file) {
        const bool needsIt = needsFile(file.steps);
        const bool isNeeded = isSingleFile || needsIt;
        try {
            addReadable(std::move(file), isNeeded);
        } catch (const FileGone&) {
            if (needsIt) {
                throw;
            }
        } catch (const FileRefuses& failure) {
            if (isNeeded) {
                throw;
            }
            ZORV_LOG(error, "%s", failure.what());
            ++plan.failed;
        }
    }

 private:
    void addReadable(PlannedFile file, bool isNeeded) {
        SeenFile& seen = file.seen;
        if (seen.reason != 0) {
            throwFileError(seen.path, seen.reason);
        }
        ChangedFile changed{
            {std::move(seen.path), seen.status.device, seen.status.inode, std::move(seen.label), {}},
            {},
            {},
            isNeeded};
        const std::string& path = changed.file.path;
        const LabelBytes& former = changed.file.former;
        // A whole label takes the place of whatever is there.
        const bool isKept = former && !writesWholeLabel(file.steps.front().step->kind);
        Label label = isKept ? decodeLabel(path, *former) : Label();
        for (const FileStep& entry : file.steps) {
            apply(entry, seen.status.mode, changed, label);
        }
        changed.file.wanted = encodeLabel(label);
        if (changed.isToBeWritten() && !isNeeded && isReadOnly(path, changed.file.device)) {
            throw FileRefuses(path, std::strerror(EROFS));
        }
        if (changed.isToBeWritten()) {
            plan.writesLabels = true;
            changed.pin = std::move(file.pin);
        }
        if (!changed.isToBeWritten() &&
            (rightDevices.insert(changed.file.device).second || plan.rightFiles.size() <= kFewFiles)) {
            plan.rightFiles.push_back(path);
        }
        if (changed.isToBeWritten() || !changed.messages.empty()) {
            plan.files.push_back(std::move(changed));
        }
    }

    // Each file system is asked once.
    bool isReadOnly(const std::string& path, dev_t device) {
        const auto [entry, isNew] = readOnlyDevices.try_emplace(device);
        if (isNew) {
            entry->second = PinnedFile(context, path).isOnReadOnlyFileSystem();
        }
        return entry->second;
    }

    void apply(const FileStep& entry, mode_t mode, ChangedFile& changed, Label& label) {
        using UserValues = LabelDeriver::UserValues;
        const ChangeKind kind = entry.step->kind;
        const Field field = entry.step->target.field;
        const PendingFile& file = changed.file;
        bool isNew = true;
        if (writesWholeLabel(kind)) {
            label = deriver.label(file.path, mode,
                                  kind == ChangeKind::kRestore ? UserValues::kObserve : UserValues::kIgnore);
            plan.lastValue = label.toString();
        } else {
            const FieldValue value = deriver.value(field, file.path, mode);
            isNew = !file.former || numbersOf(value) != numbersOf(fieldOf(label, field));
            setField(label, field, value);
            plan.lastValue = textOf(value);
        }
        if (isNew || entry.isTarget) {
            changed.messages.push_back(
                changeMessage("file", operationOf(kind, field), file.path, plan.lastValue));
        }
    }

    const Context& context;
    LabelDeriver& deriver;
    ChangePlan& plan;
    bool isSingleFile;
    std::map<dev_t, bool> readOnlyDevices;
    std::set<dev_t> rightDevices;
};

}  // namespace

FoundFiles filesOf(const Context& context, const Target& target) {
    if (target.isPattern) {
        return filesMatching(context, target.text);
    }
    FoundFiles found;
    found.files.push_back({target.text, {}, std::nullopt});
    return found;
}

ChangePlan planFiles(Store& store, const Context& context, const std::vector<ChangeStep>& steps) {
    ChangePlan plan;
    std::deque<PlannedFile> files = filesOfSteps(context, steps, plan.failed);
    lookAtFiles(context, files);
    Facts facts(context);
    LabelDeriver deriver(&store, facts);
    deriver.expectFiles(files.size());
    FilePlanner planner(context, deriver, plan, steps.size() == 1 && !steps.front().target.isPattern);
    for (; !files.empty(); files.pop_front()) {  // what has been planned is not kept twice
        planner.add(std::move(files.front()));
    }
    return plan;
}
