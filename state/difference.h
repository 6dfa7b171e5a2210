#pragma once

#include <optional>
#include <vector>

#include "labelmgr/change/change.h"
#include "state/records.h"

// What is to be done so that what is set becomes what is wanted.

// Pure additions have no former value, pure removals no value. With the same value on
// both sides a pattern is set anew for its place among the others.
struct ValueChange {
    Target target;
    std::optional<FieldValue> former;
    std::optional<FieldValue> value;
};

struct PackageChange {
    std::string name;
    std::optional<uint64_t> former;
    std::optional<uint64_t> value;
};

struct Difference {
    // Removals and paths first, then patterns in the order in which they are to be set.
    std::vector<ValueChange> values;
    std::vector<PackageChange> packages;

    bool isEmpty() const { return values.empty() && packages.empty(); }
};

// Both in the order of recordsOf, and no name twice. Records that only the present has
// are removed, unless they are kept.
Difference differenceOf(const Records& present, const Records& wanted, bool keepsOthers);
