#pragma once

#include <optional>
#include <string>

#include "labelmgr/model/context.h"
#include "labelmgr/policy/package_database.h"
#include "labelmgr/policy/policy_file.h"

// What labels are derived from besides what users set, as one operation sees it: the
// policy file is read once, and owners of packages are asked for one by one or all at
// once.
class Facts {
 public:
    explicit Facts(const Context& in) : context(in) {}

    const Policy& policy();

    // The name of the package that owns a path; empty when none does.
    std::string ownerOf(const std::string& path);
    // From here on ownerOf answers for paths at or below the root, without asking again;
    // these are the owners.
    const OwnersByPath& ownersBelow(const std::string& root);
    // The same for all paths at the first question, where that is better for a number of
    // files.
    void expectFiles(size_t count);

 private:
    const Context& context;
    std::optional<Policy> readPolicy;
    std::optional<OwnersByPath> owners;
    bool expectsManyFiles = false;
};
