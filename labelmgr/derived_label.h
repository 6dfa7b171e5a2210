#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "labelmgr/field.h"
#include "labelmgr/packages.h"
#include "labelmgr/policy.h"
#include "labelmgr/store.h"

// The id of a package that has none from a user.
uint64_t packageIdOfName(const std::string& name);
// The user-set id of the name, else packageIdOfName.
uint64_t packageIdOf(Store& store, const std::string& name);

// Works out what the fields of files should be: what users set, else policy and the package database. Policy
// is read once, owners one by one or, for many files, all at once. Throws OperationError, FileGone for a file
// that is not there.
class LabelDeriver {
 public:
    LabelDeriver(Store& forStore, size_t expectedFiles) : store(forStore), fileCount(expectedFiles) {}

    FieldValue value(Field field, const std::string& path);

 private:
    FieldValue byPolicy(Field field, const std::string& path);
    std::string ownerOf(const std::string& path);

    Store& store;
    size_t fileCount;
    std::optional<Policy> policy;
    std::optional<PackageOwners> owners;
};
