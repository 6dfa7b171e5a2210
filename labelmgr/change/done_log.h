#pragma once

#include <string>

#include "labelmgr/change/change.h"

// The log's lines about what was done, at level INFO: what, by whom, in which process.
// Without a configuration of the log there are none: its fallback would tell of itself on
// the caller's standard output.

// "by user 0 (logged in as 1000) in process 42".
std::string byWhom();

void logDone(const std::string& what);
// A change, by its first step.
void logDone(const std::vector<ChangeStep>& steps, const std::vector<PackageStep>& packages,
             const std::string& lastValue, size_t files);
