#include "state/change_of_state.h"

#include <array>
#include <optional>
#include <utility>

#include "base/hexadecimal.h"
#include "labelmgr/change/change_plan.h"
#include "labelmgr/change/session.h"
#include "state/difference.h"
#include "state/label_text.h"
#include "state/output.h"
#include "state/progress.h"
#include "state/scratch_store.h"

namespace {

// What is done to a record, and how often.
enum class Action { kAdd, kChange, kRemove, kMove };
constexpr std::array<const char*, 4> kActions = {"add", "change", "remove", "move"};
using Counts = std::array<size_t, kActions.size()>;

Action actionOf(const std::optional<std::string>& former, const std::optional<std::string>& value) {
    if (!former || !value) {
        return former ? Action::kRemove : Action::kAdd;
    }
    return former == value ? Action::kMove : Action::kChange;
}

template <typename Value, typename TextOf>
std::optional<std::string> textOfAny(const std::optional<Value>& value, TextOf textOfValue) {
    return value ? std::optional<std::string>(textOfValue(*value)) : std::nullopt;
}

// Prints changes of records as they are told.
class Teller {
 public:
    explicit Teller(const Options& optionsOfRun) : options(optionsOfRun) {}

    void tell(const ValueChange& change) {
        const auto text = [](const FieldValue& value) { return textOf(value); };
        tell(change.target.isPattern ? "pattern" : "path", change.target.text, nameOf(change.target.field),
             textOfAny(change.former, text), textOfAny(change.value, text));
    }
    void tell(const PackageChange& change) {
        tell("package", change.name, "id", textOfAny(change.former, hexadecimalOf64),
             textOfAny(change.value, hexadecimalOf64));
    }
    void tell(const ChangedFile& file) {
        if (!file.isToBeWritten()) {
            return;
        }
        ++labels;
        Json record = {{"action", "label"}};
        addName(record, "path", file.file.path);
        addLabel(record, "former", file.file.former);
        addLabel(record, "label", file.file.wanted);
        printRecord(options,
                    "label " + asOneLine(file.file.path) + ": " + labelText(file.file.former) + " -> " +
                        labelText(file.file.wanted),
                    record);
    }
    void tellSum() const {
        Json record;
        std::string text;
        for (size_t i = 0; i < counts.size(); ++i) {
            record[kActions.at(i)] = counts.at(i);
            text.append(text.empty() ? "" : ", ").append(kActions.at(i)).append(" ");
            text.append(std::to_string(counts.at(i)));
        }
        if (options.isCheck) {
            record["label"] = labels;
            text.append(", label ").append(std::to_string(labels));
        }
        const bool isNothing = counts == Counts{};
        printRecord(options, isNothing ? "nothing to do" : text, record);
    }

 private:
    static std::string hexadecimalOf64(uint64_t value) { return hexadecimalOf(value); }

    void tell(const char* kind, const std::string& name, const char* field,
              const std::optional<std::string>& former, const std::optional<std::string>& value) {
        const auto action = static_cast<size_t>(actionOf(former, value));
        ++counts.at(action);
        Json record = {{"action", kActions.at(action)}};
        addName(record, kind, name);
        record["field"] = field;
        std::string text =
            std::string(kActions.at(action)) + " " + kind + " " + asOneLine(name) + ": " + field;
        if (former && former != value) {
            record["former"] = *former;
            text.append(" ").append(*former);
        }
        if (value) {
            record["value"] = *value;
            text.append(former && former != value ? " -> " : " ").append(*value);
        }
        printRecord(options, text, record);
    }

    const Options& options;
    Counts counts{};
    size_t labels = 0;
};

std::vector<ChangeStep> stepsOf(const Difference& difference, bool needFiles) {
    std::vector<ChangeStep> steps;
    steps.reserve(difference.values.size());
    for (const ValueChange& change : difference.values) {
        steps.push_back({change.value ? ChangeKind::kSet : ChangeKind::kDelete, change.target,
                         change.value.value_or(FieldValue()), needFiles});
    }
    return steps;
}

std::vector<PackageStep> packageStepsOf(const Difference& difference) {
    std::vector<PackageStep> steps;
    for (const PackageChange& change : difference.packages) {
        steps.push_back(
            {change.value ? ChangeKind::kSet : ChangeKind::kDelete, change.name, change.value.value_or(0)});
    }
    return steps;
}

// Sets all records, looks what that would do to labels, and takes it back.
ChangePlan planOf(Store& store, const Context& context, const std::vector<ChangeStep>& steps,
                  const std::vector<PackageStep>& packages) {
    Transaction transaction = store.begin();
    changeRecords(store, steps);
    changePackageIds(store, packages);
    return planFiles(store, context, steps);
}

}  // namespace

Status bringAbout(const Context& context, const WantedRecords& wanted, const Options& options) {
    std::optional<Store> store = openToChangeIfThere(context);
    const Records present = store ? recordsOf(store->userValues(), store->packageIds()) : Records();
    const Difference difference = differenceOf(present, wanted(present), options.keepsOthers);
    const std::vector<ChangeStep> steps = stepsOf(difference, !options.allowsMissing);
    const std::vector<PackageStep> packages = packageStepsOf(difference);
    Teller teller(options);
    std::optional<ScratchStore> scratch;
    if (!store && !difference.isEmpty()) {
        if (options.isCheck) {
            scratch.emplace();
        }
        store = scratch ? Store::openToWrite(scratch->directory()) : openToChange(context);
    }
    ChangePlan plan;
    std::exception_ptr partlyDone;
    if (!difference.isEmpty()) {
        const Progress progress(options, std::to_string(steps.size()) + " records to change");
        try {
            options.isCheck ? void(plan = planOf(*store, context, steps, packages))
                            : void(carryOut(*store, context, steps, packages));
        } catch (const PartlyDone&) {
            partlyDone = std::current_exception();
        }
    }
    for (const ValueChange& change : difference.values) {
        teller.tell(change);
    }
    for (const PackageChange& change : difference.packages) {
        teller.tell(change);
    }
    for (const ChangedFile& file : plan.files) {
        teller.tell(file);
    }
    teller.tellSum();
    if (partlyDone) {
        std::rethrow_exception(partlyDone);
    }
    return difference.isEmpty() ? Status::kDone : Status::kDifferent;
}
