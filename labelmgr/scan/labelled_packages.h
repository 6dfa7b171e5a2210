#pragma once

#include <cstddef>
#include <optional>

#include "labelmgr/model/context.h"
#include "labelmgr/policy/package_database.h"

// Which packages had been installed when the whole system was labelled, so that only the
// files of those that came later need be labelled. Kept in the state directory as long as
// that labelling counts.

// Before a labelling of the whole system. Throws OperationError.
void forgetLabelledPackages(const Context& context);
// When it is complete, but for files that failed. Where they cannot be kept, which is
// logged, the next labelling is one of the whole system.
void keepLabelledPackages(const Context& context, const std::optional<PackageVersions>& versions,
                          bool hadFailures);

struct LabelledAnew {
    size_t packages = 0;
    size_t files = 0;
    size_t failed = 0;         // of these; a line each in the log
    bool hadFailures = false;  // the labelling of the whole system or of packages since then
};

// Labels the files of packages that were installed or written anew since then. Nothing
// when the whole system has not been labelled, or the package database cannot be told.
// Throws OperationError.
std::optional<LabelledAnew> labelNewPackages(const Context& context);
