#pragma once

#include "cli/command_options.h"

// Runs the one operation that the options name and answers the exit status.
int dispatch(const CommandLine& line);
