#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "labelmgr/files/tree_walk.h"
#include "labelmgr/model/field.h"
#include "labelmgr/model/pattern_rules.h"
#include "labelmgr/policy/derived_label.h"
#include "labelmgr/policy/facts.h"
#include "labelmgr/store/store.h"

// Everything that labels below a root are derived from, read at once for many threads to
// use: what users set, policy, package ids and owners. Literal paths are found by hash,
// and of the patterns each directory keeps those that can match in it.
class LabelSnapshot {
 public:
    // Policy and package owners, which may take their time. Users' values are still to
    // come.
    LabelSnapshot(Facts& facts, const std::string& root, const std::vector<std::string>& skippedPaths);
    void readUserValues(Store& store);

    // The rules that can matter in a directory and below it, and who owns what in it.
    struct Directory : WalkState {
        std::string path;
        std::string owner;
        OwnedNames names;
        ByField<CandidateRules<FieldValue>> userPatterns;
        CandidateRules<uint32_t> tids;
        CandidateRules<uint32_t> inheritFlags;
        CandidateRules<uint32_t> excluded;
    };

    std::shared_ptr<const Directory> wholeSystem() const;
    std::shared_ptr<const Directory> below(const std::shared_ptr<const Directory>& parent,
                                           const std::string& path) const;

    bool isExcluded(const Directory& directory, const std::string& path) const;
    // Whether it or a directory above it is excluded.
    bool isLeftAlone(const std::string& path) const;
    Label label(const Directory& directory, const std::string& path, mode_t mode) const;

 private:
    using PathValues = ByField<std::optional<FieldValue>>;

    PolicyValues policyValues(const Directory& directory, const std::string& path) const;
    uint64_t packageOf(std::string_view ownerName) const;

    std::unordered_map<std::string, PathValues> userPaths;
    ByField<PatternRules<FieldValue>> userPatterns;
    std::unordered_map<std::string, uint64_t> packageIds;
    std::unordered_set<std::string> skipped;
    const Policy& policy;
    PackageOwners& owners;
    const OwnedNames besideRoot;
};
