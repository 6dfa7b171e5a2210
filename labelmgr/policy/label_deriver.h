#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <unordered_map>

#include "labelmgr/model/field.h"
#include "labelmgr/policy/derived_label.h"
#include "labelmgr/policy/facts.h"
#include "labelmgr/store/store.h"

// Works out what the labels of single files should be: what users set for the path, else
// for the pattern that was set last and matches it, else policy and the package database.
// Without a store nothing is user-set. For any number of threads, none of which uses the
// store or the facts otherwise meanwhile. Throws OperationError.
class LabelDeriver {
 public:
    LabelDeriver(Store* storeIfAny, Facts& factsToUse) : store(storeIfAny), facts(factsToUse) {}

    // For many files what users set for single paths is read at once.
    void expectFiles(size_t count);

    FieldValue value(Field field, const std::string& path, mode_t mode);

    enum class UserValues { kObserve, kIgnore };
    Label label(const std::string& path, mode_t mode, UserValues userValues);

    // The id of the package that owns a path, which need not exist; 0 when none does.
    uint64_t packageOf(const std::string& path);
    // What a user set for the name, else the id of the name.
    uint64_t packageId(const std::string& name);

 private:
    using ValuesByPath = std::unordered_map<std::string, FieldValue>;

    // What is looked up by one thread at a time.
    template <typename LookUp>
    auto oneAtATime(LookUp lookUp) {
        const std::lock_guard<std::mutex> lock(mutex);
        return lookUp();
    }
    const Policy& policy();
    std::optional<FieldValue> userValue(Field field, const std::string& path);
    std::optional<FieldValue> exactValue(Field field, const std::string& path);
    static ValuesByPath valuesByPath(Store& store, Field field);

    Store* store;
    Facts& facts;
    bool expectsManyFiles = false;
    std::mutex mutex;
    // What has been read stays as it is.
    ByField<std::optional<PatternRules<FieldValue>>> patterns;
    ByField<std::optional<ValuesByPath>> paths;
};
