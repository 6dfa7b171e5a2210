#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <sys/stat.h>

#include "label/label.h"
#include "labelmgr/model/field.h"
#include "labelmgr/model/pattern_rules.h"

// What a file's label should be, by pure rules. Whoever derives labels looks up the facts
// (see LabelDeriver for single files, LabelSnapshot for a whole tree) and comes here for
// the answer.

// The last 64 bits of a text's SM3 digest. Throws OperationError when there is none to be
// had: a label of zeros must not pass for the right one.
uint64_t digestOf(const std::string& text);

// The id of a package that has none from a user.
uint64_t packageIdOfName(const std::string& name);

bool isExecutableFile(mode_t mode);

// What the package database and the policy file say of a path.
struct PolicyValues {
    uint64_t package = 0;  // the id of the one that owns it; 0: no owner
    uint32_t tid = 0;
    uint32_t inheritFlag = 0;
};

// A file's label by policy alone. A directory has no file part, and only an executable
// file is a subject.
Label initialLabel(const std::string& path, mode_t mode, const PolicyValues& values);

// What holds of what users set: the value of exactly the path, else of the first pattern
// that matches it (PatternRules or CandidateRules, the one set last first).
template <typename Rules>
std::optional<FieldValue> userSetValue(const std::optional<FieldValue>& exact, const Rules& patterns,
                                       const std::string& path) {
    if (exact) {
        return exact;
    }
    const FieldValue* value = firstMatch(patterns, path);
    return value != nullptr ? std::optional(*value) : std::nullopt;
}

// A file's whole label; `userValueOf` answers for a field what users set, or nothing.
template <typename UserValueOf>
Label derivedLabel(const std::string& path, mode_t mode, const PolicyValues& values,
                   UserValueOf userValueOf) {
    Label label = initialLabel(path, mode, values);
    for (const Field field : kFields) {
        if (const std::optional<FieldValue> set = userValueOf(field)) {
            setField(label, field, *set);
        }
    }
    return label;
}
