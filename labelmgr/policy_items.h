#pragma once

#include <map>
#include <string>
#include <vector>

#include "cli/label_manager.h"

using PolicyTexts = std::map<std::string, std::vector<std::string>>;
using PolicyIds = std::map<std::string, std::map<std::string, std::vector<ZORV_ID>>>;

// The identifiers that the items of policies stand for. "subject_pkg", "object_pkg": a package's id,
// installed or not. "subject_file", "object_file": the OID of a path, existing or not, or of each existing
// match of a pattern. "subject_recurfile", "object_recurfile": the same, and of everything below a directory.
// Throws OperationError for an unknown kind and for an unsafe pattern.
PolicyIds parsePolicies(const PolicyTexts& policies);
