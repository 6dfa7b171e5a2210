#include "labelmgr/change/change_plan.h"

#include <algorithm>

#include "labelmgr/model/operation_error.h"
#include "log/logger.h"

namespace {

constexpr size_t kMostPins = 256;

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

std::map<std::string, FileSteps> stepsByFile(const std::vector<ChangeStep>& steps, size_t& failed) {
    std::map<std::string, FileSteps> byFile;
    for (const ChangeStep& step : steps) {
        const FoundFiles found = filesOf(step.target);
        failed += found.unreadable;
        for (const std::string& path : found.paths) {
            addStep(byFile[path], {&step, !step.target.isPattern});
        }
    }
    return byFile;
}

// A value cannot be set on a file that is gone; to take one away needs no file.
bool needsFile(const FileSteps& steps) {
    return std::any_of(steps.begin(), steps.end(), [](const FileStep& entry) {
        return entry.isTarget && entry.step->kind != ChangeKind::kDelete &&
               entry.step->kind != ChangeKind::kClear;
    });
}

// Each is asked once.
class ReadOnlyFileSystems {
 public:
    bool hold(const PinnedFile& file) {
        const auto [entry, isNew] = areReadOnly.try_emplace(file.device());
        if (isNew) {
            entry->second = file.isOnReadOnlyFileSystem();
        }
        return entry->second;
    }

 private:
    std::map<dev_t, bool> areReadOnly;
};

class FilePlanner {
 public:
    // Of one single file every failure is that of the change.
    FilePlanner(const Context& context, LabelDeriver& deriverToUse, ChangePlan& planToFill, bool isSingle)
        : pinner(context), deriver(deriverToUse), plan(planToFill), isSingleFile(isSingle) {}

    void add(const std::string& path, const FileSteps& steps) {
        const bool isNeeded = isSingleFile || needsFile(steps);
        try {
            addReadable(pinner.pin(path), steps, isNeeded);
        } catch (const FileGone&) {
            if (needsFile(steps)) {
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
    void addReadable(PinnedFile pin, const FileSteps& steps, bool isNeeded) {
        ChangedFile changed{{pin.path(), pin.inode(), pin.label(), {}}, {}, {}, isNeeded};
        const LabelBytes& former = changed.file.former;
        // A whole label takes the place of whatever is there.
        const bool isKept = former && !writesWholeLabel(steps.front().step->kind);
        Label label = isKept ? decodeLabel(pin.path(), *former) : Label();
        for (const FileStep& entry : steps) {
            apply(entry, pin.mode(), changed, label);
        }
        changed.file.wanted = encodeLabel(label);
        if (changed.isToBeWritten() && !isNeeded && readOnly.hold(pin)) {
            throw FileRefuses(pin.path(), std::strerror(EROFS));
        }
        if (changed.isToBeWritten() && plan.files.size() < kMostPins) {
            changed.pin = std::move(pin);
        }
        if (changed.isToBeWritten() || !changed.messages.empty()) {
            plan.writesLabels = plan.writesLabels || changed.isToBeWritten();
            plan.files.push_back(std::move(changed));
        }
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

    FilePinner pinner;
    LabelDeriver& deriver;
    ChangePlan& plan;
    bool isSingleFile;
    ReadOnlyFileSystems readOnly;
};

}  // namespace

FoundFiles filesOf(const Target& target) {
    return target.isPattern ? filesMatching(target.text) : FoundFiles{{target.text}, 0};
}

ChangePlan planFiles(Store& store, const Context& context, const std::vector<ChangeStep>& steps) {
    ChangePlan plan;
    const std::map<std::string, FileSteps> byFile = stepsByFile(steps, plan.failed);
    Facts facts(context);
    LabelDeriver deriver(&store, facts);
    deriver.expectFiles(byFile.size());
    FilePlanner planner(context, deriver, plan, steps.size() == 1 && !steps.front().target.isPattern);
    for (const auto& [path, fileSteps] : byFile) {
        planner.add(path, fileSteps);
    }
    return plan;
}
