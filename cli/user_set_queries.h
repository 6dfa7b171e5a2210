#pragma once

#include "cli/command_options.h"

// True when a run with -u names a field that users can set.
bool isUserSetQuery(const CommandOptions& options);

// Prints what users have set for the first selected field, of one path, pattern or
// package or of all ("--all"). Reports a failed query and exits 0 like any other.
void queryUserSet(const CommandOptions& options);
