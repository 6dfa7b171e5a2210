#pragma once

#include "cli/command_options.h"

// Set, get, delete and clear one label field of a file or the id of a package, each by
// one call of the label manager. Every function answers the exit status and prints its
// own lines.

// The number of words must be exact; one more with a pattern, except for package ids,
// which have none.
int setOid(const CommandLine& line);
int setSid(const CommandLine& line);
int setTid(const CommandLine& line);  // a failed set still answers 0; only a wrong count answers 1
int setInheritFlag(const CommandLine& line);
int setInheritFlagAfterTid(const CommandLine& line);  // without counting: takes the TID's word as the flag
int setPackageId(const CommandLine& line);  // a failed set still answers 0; only a wrong count answers 1

int printPackageId(const char* name);
int printOid(const char* path);
int printSid(const char* path);
int printTid(const char* path);
int printInheritFlag(const char* path);

// Deletes every selected field for every operand. Failures are printed and do not count.
void deleteFields(const CommandLine& line);

// Clears the fields that the operands name, for all files. An unknown word ends it with
// 1; earlier words stay done.
int clearFields(const CommandLine& line);
