#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "base/handles.h"
#include "labelmgr/model/pattern_rules.h"

constexpr const char* kTidSection = "tid";
constexpr const char* kInheritFlagSection = "inherit_flag";
constexpr const char* kExcludeSection = "exclude";

// What the policy file says. Sections [tid] and [inherit_flag] map a path pattern to a
// hexadecimal value (the flag is 0, 5 or 7), [exclude] lists patterns of paths that a
// scan leaves alone. Of several patterns that match, the longest holds; of equally long
// ones the byte-wise smaller.
struct Policy {
    uint32_t tid(const std::string& path) const { return matchedNumber(tids, path); }
    uint32_t inheritFlag(const std::string& path) const { return matchedNumber(inheritFlags, path); }

    PatternRules<uint32_t> tids;
    PatternRules<uint32_t> inheritFlags;
    PatternRules<uint32_t> excluded;  // the values mean nothing
};

// The value that a rule of section "tid" or "inherit_flag" gives, by its text. Nothing
// for a bad one.
std::optional<uint32_t> parseRuleValue(std::string_view section, const std::string& text);

// Whether the first of two patterns is asked before the second.
bool isAskedBefore(const std::string& pattern, const std::string& other);

// By section, then key, as parseConfig answers.
using PolicySections = std::unordered_map<std::string, std::unordered_map<std::string, std::string>>;

// A bad value is logged as an error with the file's name, its section and pattern, and
// skipped.
Policy policyOf(const PolicySections& sections, const std::string& fileName);

constexpr size_t kLargestPolicy = 16 << 20;

// Opens a policy file. No descriptor when there is none. Throws OperationError for a file
// that cannot be opened or is larger than kLargestPolicy, or as root for one that others
// may write or root does not own.
UniqueFd openPolicy(const std::string& path);

// No file is the empty policy. Throws OperationError as openPolicy does, and for a file
// that cannot be read.
Policy loadPolicy(const std::string& path);
