#pragma once

#include <optional>
#include <string>

#include "labelmgr/model/context.h"
#include "labelmgr/policy/package_owners.h"
#include "labelmgr/policy/policy_file.h"

// What labels are derived from besides what users set, as one operation sees it: the
// policy file is read once, and so is the list of owners where many are asked for.
class Facts {
 public:
    explicit Facts(const Context& in) : context(in), packageOwners(in) {}

    const Policy& policy();

    // The name of the package that owns a path; empty when none does.
    std::string ownerOf(const std::string& path) { return packageOwners.of(path); }
    // The owners of all paths, read at the latest now.
    PackageOwners& owners();
    // The same where that is better for a number of files.
    void expectFiles(size_t count);

 private:
    const Context& context;
    std::optional<Policy> readPolicy;
    PackageOwners packageOwners;
};
