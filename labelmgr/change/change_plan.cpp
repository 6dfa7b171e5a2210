#include "labelmgr/change/change_plan.h"

#include <algorithm>
#include <mutex>
#include <numeric>
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

bool isAboutTheSame(const ChangeStep& left, const ChangeStep& right) {
    return writesWholeLabel(left.kind) == writesWholeLabel(right.kind) &&
           (writesWholeLabel(left.kind) || left.target.field == right.target.field);
}

// Of several steps about one field of one file, one is enough: what counts is what the
// store says.
void addStep(std::vector<FileStep>& steps, const FileStep& added) {
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

void take(SeenFile& seen, ChangedFile& changed) {
    changed.file.path = std::move(seen.path);
    changed.file.device = seen.status.device;
    changed.file.inode = seen.status.inode;
    changed.file.former = std::move(seen.label);
    changed.mode = seen.status.mode;
    changed.mount = seen.status.mount;
    changed.reason = seen.reason;
}

// Sorted by path, with their steps. Those that patterns found have been looked at.
ChangedFiles filesOfSteps(const Context& context, const std::vector<ChangeStep>& steps, size_t& failed) {
    std::vector<std::pair<SeenFile, FileStep>> found;
    for (const ChangeStep& step : steps) {
        FoundFiles files = filesOf(context, step.target);
        failed += files.unreadable;
        if (found.empty()) {  // only then: thousands of patterns would copy it as often
            found.reserve(files.files.size());
        }
        for (SeenFile& file : files.files) {
            found.emplace_back(std::move(file), FileStep{&step, !step.target.isPattern});
        }
    }
    std::vector<size_t> order(found.size());
    std::iota(order.begin(), order.end(), size_t{0});
    sortInThreads(order, [&](size_t left, size_t right) {
        const int difference = found[left].first.path.compare(found[right].first.path);
        return difference != 0 ? difference < 0 : left < right;
    });
    ChangedFiles changed;
    for (const size_t number : order) {
        auto& [file, step] = found[number];
        if (changed.empty() || changed.back().file.path != file.path) {
            take(file, changed.emplace_back());
        }
        addStep(changed.back().steps, step);
    }
    return changed;
}

// A few are pinned; of more it is enough to have seen them.
void lookAtFiles(const Context& context, ChangedFiles& files) {
    const bool arePinned = files.size() <= mostPins();
    const auto look = [&](FilePinner& pinner, ChangedFile& changed) {
        const bool isSeen = changed.file.inode != 0 || changed.reason != 0;
        if (isSeen && !arePinned) {
            return;
        }
        SeenFile seen{std::move(changed.file.path), {}, std::nullopt};
        if (arePinned) {
            changed.pin = pinner.pinAndSee(seen);
        } else {
            pinner.see(seen);
        }
        take(seen, changed);
    };
    const auto lookAtPieces = [&](Pieces& pieces) {
        FilePinner pinner(context);
        pieces.forEachNumber([&](size_t number) { look(pinner, files[number]); });
    };
    inThreads(files.size(), lookAtPieces, [] {});
}

// A value cannot be set on a file that is gone; to take one away needs no file.
bool needsFile(const std::vector<FileStep>& steps) {
    return std::any_of(steps.begin(), steps.end(), [](const FileStep& entry) {
        return entry.isTarget && entry.step->needsFile && entry.step->kind != ChangeKind::kDelete &&
               entry.step->kind != ChangeKind::kClear;
    });
}

// Plans files one after the other; several threads have one each.
class FilePlanner {
 public:
    // Of one single file every failure is that of the change.
    FilePlanner(const Context& in, LabelDeriver& deriverToUse, bool isSingle)
        : context(in), deriver(deriverToUse), isSingleFile(isSingle) {}

    // Fills in the wanted label, and keeps of the steps those that are told. What cannot
    // be changed and is not needed is left out.
    void plan(ChangedFile& file) {
        const bool needsIt = needsFile(file.steps);
        file.isNeeded = isSingleFile || needsIt;
        if (isGone(file.reason) && !needsIt) {  // of very many, and an exception takes its time
            file.isLeftOut = true;
            return;
        }
        try {
            planReadable(file);
            return;
        } catch (const FileGone&) {
            if (needsIt) {
                throw;
            }
        } catch (const FileRefuses& failure) {
            if (file.isNeeded) {
                throw;
            }
            refusals.emplace(file.file.path, failure.what());
        }
        file.isLeftOut = true;
    }

    bool writesLabels = false;
    std::map<std::string, std::string> refusals;  // why, by path
    std::vector<std::string> rightFiles;

 private:
    void planReadable(ChangedFile& changed) {
        PendingFile& file = changed.file;
        if (changed.reason != 0) {
            throwFileError(file.path, changed.reason);
        }
        // A whole label takes the place of whatever is there.
        const bool isKept = file.former && !writesWholeLabel(changed.steps.front().step->kind);
        Label label = isKept ? decodeLabel(file.path, *file.former) : Label();
        std::erase_if(changed.steps, [&](const FileStep& step) { return !apply(step, changed, label); });
        file.wanted = encodeLabel(label);
        if (!changed.isToBeWritten()) {
            changed.pin.reset();
            noteRight(file);
            return;
        }
        if (!changed.isNeeded && isReadOnly(changed)) {
            throw FileRefuses(file.path, std::strerror(EROFS));
        }
        writesLabels = true;
    }

    void noteRight(const PendingFile& file) {
        if (rightDevices.insert(file.device).second || rightFiles.size() <= kFewFiles) {
            rightFiles.push_back(file.path);
        }
    }

    // Each mount is asked once.
    bool isReadOnly(const ChangedFile& changed) {
        const auto [entry, isNew] = readOnlyMounts.try_emplace({changed.file.device, changed.mount});
        if (isNew) {
            entry->second = PinnedFile(context, changed.file.path).isOnReadOnlyFileSystem();
        }
        return entry->second;
    }

    // Whether it is told.
    bool apply(const FileStep& entry, const ChangedFile& changed, Label& label) {
        using UserValues = LabelDeriver::UserValues;
        const ChangeKind kind = entry.step->kind;
        const Field field = entry.step->target.field;
        const PendingFile& file = changed.file;
        bool isNew = true;
        if (writesWholeLabel(kind)) {
            label = deriver.label(file.path, changed.mode,
                                  kind == ChangeKind::kRestore ? UserValues::kObserve : UserValues::kIgnore);
        } else {
            const FieldValue value = deriver.value(field, file.path, changed.mode);
            isNew = !file.former || numbersOf(value) != numbersOf(fieldOf(label, field));
            setField(label, field, value);
        }
        return isNew || entry.isTarget;
    }

    const Context& context;
    LabelDeriver& deriver;
    bool isSingleFile;
    std::map<std::pair<dev_t, uint64_t>, bool> readOnlyMounts;
    std::set<dev_t> rightDevices;
};

std::string valueTold(const ChangeStep& step, const PendingFile& file) {
    const Label label = decodeLabel(file.path, file.wanted);
    return writesWholeLabel(step.kind) ? label.toString() : textOf(fieldOf(label, step.target.field));
}

}  // namespace

void addMessages(const ChangedFile& file, std::vector<std::string>& messages) {
    for (const FileStep& told : file.steps) {
        const std::string operation = operationOf(told.step->kind, told.step->target.field);
        messages.push_back(
            changeMessage("file", operation, file.file.path, valueTold(*told.step, file.file)));
    }
}

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
    plan.files = filesOfSteps(context, steps, plan.failed);
    lookAtFiles(context, plan.files);
    Facts facts(context);
    LabelDeriver deriver(&store, facts);
    deriver.expectFiles(plan.files.size());
    const bool isSingle = steps.size() == 1 && !steps.front().target.isPattern;
    std::map<std::string, std::string> refusals;
    std::mutex mutex;  // of these, and of the plan but for its files
    const auto planPieces = [&](Pieces& pieces) {
        FilePlanner planner(context, deriver, isSingle);
        pieces.forEachNumber([&](size_t number) { planner.plan(plan.files[number]); });
        const std::lock_guard<std::mutex> lock(mutex);
        plan.writesLabels |= planner.writesLabels;
        refusals.merge(planner.refusals);
        plan.rightFiles.insert(plan.rightFiles.end(), planner.rightFiles.begin(), planner.rightFiles.end());
    };
    inThreads(plan.files.size(), planPieces, [] {});
    for (const auto& refusal : refusals) {
        ZORV_LOG(error, "%s", refusal.second.c_str());
    }
    plan.failed += refusals.size();
    const auto last = std::find_if(plan.files.rbegin(), plan.files.rend(),
                                   [](const ChangedFile& file) { return !file.isLeftOut; });
    if (last != plan.files.rend()) {
        plan.lastValue = valueTold(steps.back(), last->file);
    }
    std::erase_if(plan.files, [](const ChangedFile& file) {
        return file.isLeftOut || (!file.isToBeWritten() && file.steps.empty());
    });
    return plan;
}
