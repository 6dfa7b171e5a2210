#include <optional>

#include "labelmgr/change/change.h"
#include "labelmgr/change/session.h"
#include "labelmgr/port/process_context.h"
#include "labelmgr/port/target.h"
#include "state/commands.h"
#include "state/output.h"
#include "state/progress.h"

namespace {

// The rule of exactly this text, else of the pattern with its links resolved.
std::optional<Target> ruleOf(Store& store, Field field, const std::string& pattern) {
    Target target{field, true, pattern};
    if (!store.userValues().find(target)) {
        target = targetOfRecord(field, pattern.c_str(), 1);
    }
    return store.userValues().find(target) ? std::optional(target) : std::nullopt;
}

}  // namespace

// Existing files that a rule gave its value get what holds now.
Status runRemovePattern(const Options& options) {
    const std::string& pattern = options.operands.front();
    const Context context = processContext();
    std::optional<Store> store = openToChangeIfThere(context);
    std::vector<ChangeStep> steps;
    for (const Field field :
         options.fields.empty() ? std::vector<Field>(kFields.begin(), kFields.end()) : options.fields) {
        const std::optional<Target> target = store ? ruleOf(*store, field, pattern) : std::nullopt;
        if (target) {
            steps.push_back({ChangeKind::kDelete, *target, {}});
        } else if (!options.fields.empty()) {
            throw OperationError(pattern,
                                 std::string("no ") + nameOf(field) + " has been set for this pattern");
        }
    }
    if (steps.empty()) {
        throw OperationError(pattern, "nothing has been set for this pattern");
    }
    const Progress progress(options, "removing " + asOneLine(pattern));
    carryOut(*store, context, steps);
    return Status::kDone;
}
