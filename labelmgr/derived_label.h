#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <sys/stat.h>

#include "labelmgr/field.h"
#include "labelmgr/packages.h"
#include "labelmgr/policy.h"
#include "labelmgr/store.h"

// The last 64 bits of a text's SM3 digest. Throws OperationError when there is none to be had: a label of
// zeros must not pass for the right one.
uint64_t digestOf(const std::string& text);

// The id of a package that has none from a user.
uint64_t packageIdOfName(const std::string& name);
// The user-set id of the name, else packageIdOfName. Without a store nothing is user-set.
uint64_t packageIdOf(Store* store, const std::string& name);

// What the package database and the policy file say of a path.
struct PolicyValues {
    uint64_t package = 0;  // the id of the one that owns it; 0: no owner
    uint32_t tid = 0;
    uint32_t inheritFlag = 0;
};

// A file's label by policy alone. A directory has no file part, and only an executable file is a subject.
Label initialLabel(const std::string& path, mode_t mode, const PolicyValues& values);

// What holds of what users set: the value of exactly the path, else of the first pattern that matches it
// (PatternRules or CandidateRules, the one set last first).
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

enum class UserValues { kObserve, kIgnore };

// How to ask the package database, and what is better for a number of files.
enum class OwnerLookup { kOneByOne, kAllAtOnce };
OwnerLookup ownersFor(size_t files);

// Works out what the labels of single files should be: what users set for the path, else for the pattern that
// was set last and matches it, else policy and the package database. Policy is read once, owners one by one
// or, for many files, all at once. Without a store nothing is user-set. Throws OperationError, FileGone for a
// file that is not there.
class LabelDeriver {
 public:
    LabelDeriver(Store* storeIfAny, OwnerLookup howToLookUp) : store(storeIfAny), ownerLookup(howToLookUp) {}

    FieldValue value(Field field, const std::string& path);
    Label label(const std::string& path, UserValues userValues);
    // The id of the package that owns a path, which need not exist; 0 when none does.
    uint64_t packageOf(const std::string& path);

 private:
    std::optional<FieldValue> userValue(Field field, const std::string& path);
    FieldValue byPolicy(Field field, const std::string& path);
    const Policy& currentPolicy();

    Store* store;
    OwnerLookup ownerLookup;
    std::array<std::optional<PatternRules<FieldValue>>, 4> patterns;
    std::optional<Policy> policy;
    std::optional<PackageOwners> owners;
};
