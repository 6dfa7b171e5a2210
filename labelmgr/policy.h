#pragma once

#include <cstdint>
#include <string>

#include "labelmgr/pattern_rules.h"

// The policy file: $ZORV_LABEL_POLICY_FILE or /etc/zorv/label/policy.conf. Sections [tid] and [inherit_flag]
// map a path pattern to a hexadecimal value (the flag is 0, 5 or 7), [exclude] lists patterns of paths that
// the labelling of the whole system leaves alone. Of several patterns that match, the longest holds; of
// equally long ones the byte-wise smaller.
struct Policy {
    // No file is the empty policy. A bad value is logged as an error with its section and pattern, and
    // skipped. Throws OperationError for a file that cannot be read, or as root for one that others may write
    // or root does not own.
    static Policy load();

    uint32_t tid(const std::string& path) const;
    uint32_t inheritFlag(const std::string& path) const;

    PatternRules<uint32_t> tids;
    PatternRules<uint32_t> inheritFlags;
    PatternRules<uint32_t> excluded;  // the values mean nothing
};
