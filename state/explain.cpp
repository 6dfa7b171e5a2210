#include <optional>

#include "labelmgr/change/session.h"
#include "labelmgr/files/canonical_path.h"
#include "labelmgr/files/pinned_file.h"
#include "labelmgr/policy/label_deriver.h"
#include "labelmgr/port/process_context.h"
#include "state/commands.h"
#include "state/label_text.h"
#include "state/output.h"
#include "state/policy_text.h"

namespace {

// Where a value comes from: words for people, and keys for programs.
struct Origin {
    std::string text;
    Json record;
};

Origin simpleOrigin(const char* from, const std::string& text) {
    return {text, {{"from", from}}};
}

class Explanation {
 public:
    Explanation(const Context& in, Store* storeIfAny, Facts& factsToUse)
        : context(in),
          store(storeIfAny),
          facts(factsToUse),
          lines(policyLines(policyText(openPolicy(in.policyFile), in.policyFile))) {}

    Origin of(Field field, const PinnedFile& file) {
        const std::string& path = file.path();
        if (store != nullptr && store->userValues().find({field, false, path})) {
            return simpleOrigin("path", "set for this path");
        }
        const PatternRules<FieldValue> rules =
            store != nullptr ? store->userValues().patterns(field) : PatternRules<FieldValue>();
        if (const PatternRule<FieldValue>* rule = firstRule(rules, path)) {
            Origin origin = simpleOrigin("pattern", "set for the pattern " + asOneLine(rule->pattern));
            addName(origin.record, "pattern", rule->pattern);
            return origin;
        }
        switch (field) {
            case Field::kTid:
                return ofPolicy(kTidSection, facts.policy().tids, path);
            case Field::kInheritFlag:
                return ofPolicy(kInheritFlagSection, facts.policy().inheritFlags, path);
            case Field::kSid:
                if (!isExecutableFile(file.mode())) {
                    return simpleOrigin("default", "no file that may be executed");
                }
                break;
            case Field::kOid:
                break;
        }
        return ofPackage(path);
    }

    // The rule by which a full labelling leaves a path alone.
    std::optional<Origin> exclusionOf(const std::string& path) {
        const auto* rule = firstOfPathAndAbove(
            path, [this](const std::string& above) { return firstRule(facts.policy().excluded, above); });
        return rule != nullptr ? std::optional(ofRule(kExcludeSection, rule->pattern)) : std::nullopt;
    }

 private:
    Origin ofPolicy(const char* section, const PatternRules<uint32_t>& rules, const std::string& path) {
        const PatternRule<uint32_t>* rule = firstRule(rules, path);
        return rule != nullptr ? ofRule(section, rule->pattern) : simpleOrigin("default", "no rule matches");
    }

    Origin ofRule(const char* section, const std::string& pattern) {
        const size_t line = lineOfRule(lines, section, pattern);
        Origin origin = simpleOrigin(
            "policy", asOneLine(context.policyFile) + ":" + std::to_string(line) + ": " + asOneLine(pattern));
        addName(origin.record, "pattern", pattern);
        addName(origin.record, "file", context.policyFile);
        origin.record["line"] = line;
        return origin;
    }

    Origin ofPackage(const std::string& path) {
        const std::string owner = facts.ownerOf(path);
        if (owner.empty()) {
            return simpleOrigin("name", "of no package; from the names of file and path");
        }
        const bool isSet = store != nullptr && store->packageIds().find(owner);
        Origin origin = simpleOrigin("package", "of the package " + asOneLine(owner) + ", whose id " +
                                                    (isSet ? "was set" : "is that of its name") +
                                                    "; from the names of file and path");
        addName(origin.record, "package", owner);
        origin.record["id_is_set"] = isSet;
        return origin;
    }

    const Context& context;
    Store* store;
    Facts& facts;
    const std::vector<PolicyLine> lines;
};

void print(const Options& options, const std::string& path, const char* what, const std::string& value,
           const Origin& origin) {
    Json record;
    addName(record, "path", path);
    record["field"] = what;
    record["value"] = value;
    record.update(origin.record);
    printRecord(options, std::string(what) + " " + value + ": " + origin.text, record);
}

}  // namespace

Status runExplain(const Options& options) {
    const Context context = processContext();
    const PinnedFile file(context, canonicalPath(options.operands.front().c_str()));
    std::optional<Store> store = openToRead(context);
    Store* const storeIfAny = store ? &*store : nullptr;
    Facts facts(context);
    const Label label =
        LabelDeriver(storeIfAny, facts).label(file.path(), file.mode(), LabelDeriver::UserValues::kObserve);
    Explanation explanation(context, storeIfAny, facts);
    for (const Field field : kFields) {
        print(options, file.path(), nameOf(field), textOf(fieldOf(label, field)),
              explanation.of(field, file));
    }
    print(options, file.path(), "creator_oid", label.creatorOid_.toString(),
          simpleOrigin("default", "always"));
    if (const std::optional<Origin> exclusion = explanation.exclusionOf(file.path())) {
        print(options, file.path(), "excluded", "yes",
              {"left alone by a full labelling: " + exclusion->text, exclusion->record});
    }
    const std::string wanted = encodeLabel(label);
    const LabelBytes present = file.label();
    Json record;
    addName(record, "path", file.path());
    addLabel(record, "label", present);
    addLabel(record, "expected", wanted);
    printRecord(options,
                asOneLine(file.path()) + ": " + labelText(wanted) +
                    (present == wanted ? "" : "\nits label is another one: " + labelText(present)),
                record);
    return Status::kDone;
}
