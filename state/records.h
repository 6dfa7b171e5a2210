#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "labelmgr/store/store.h"

// Everything that users set, as values: what a state file says, or what a store holds.

struct ValueRecord {
    Target target;
    FieldValue value;
    size_t line = 0;  // of the file that says it
};

struct PackageRecord {
    PackageId package;
    size_t line = 0;
};

struct Records {
    std::vector<ValueRecord> paths;
    std::vector<ValueRecord> patterns;  // of a field in the order in which they were set
    std::vector<PackageRecord> packages;
};

// Paths by path, then field; patterns by field, then order; packages by name. Throws
// OperationError.
Records recordsOf(UserValueTable userValues, PackageIdTable packageIds);

// The order of paths and of packages in Records, and in a state file: bytes of the path,
// then field; bytes of the name.
struct RecordOrder {
    bool operator()(const ValueRecord* left, const ValueRecord* right) const {
        return (*this)(*left, *right);
    }
    bool operator()(const ValueRecord& left, const ValueRecord& right) const;
    bool operator()(const PackageRecord& left, const PackageRecord& right) const;
};
