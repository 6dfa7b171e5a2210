#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "labelmgr/derived_label.h"
#include "labelmgr/field.h"
#include "labelmgr/packages.h"
#include "labelmgr/pattern_rules.h"
#include "labelmgr/policy.h"
#include "labelmgr/store.h"
#include "labelmgr/tree_walk.h"

// Everything that labels below a root are derived from, read at once for many threads to use: what users set,
// policy, package ids and owners. Literal paths are found by hash, and of the patterns each directory keeps
// those that can match in it.
class LabelSnapshot {
 public:
    LabelSnapshot(Store& store, const std::string& root, const std::vector<std::string>& skippedPaths);

    // The rules that can matter in a directory and below it.
    struct Directory : WalkState {
        std::array<CandidateRules<FieldValue>, 4> userPatterns;
        CandidateRules<uint32_t> tids;
        CandidateRules<uint32_t> inheritFlags;
        CandidateRules<uint32_t> excluded;
    };

    std::shared_ptr<const Directory> wholeSystem() const;
    std::shared_ptr<const Directory> below(const std::shared_ptr<const Directory>& parent,
                                           const std::string& path) const;

    bool isExcluded(const Directory& directory, const std::string& path) const;
    Label label(const Directory& directory, const std::string& path, mode_t mode) const;

 private:
    struct PathValues {
        std::array<std::optional<FieldValue>, 4> values;
    };

    PolicyValues policyValues(const Directory& directory, const std::string& path) const;
    uint64_t packageOf(const std::string& path) const;

    std::unordered_map<std::string, PathValues> userPaths;
    std::array<PatternRules<FieldValue>, 4> userPatterns;
    std::unordered_map<std::string, uint64_t> packageIds;
    std::unordered_set<std::string> skipped;
    Policy policy;
    PackageOwners owners;
};
