#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/api.h"

// The running system as /proc shows it. Nothing throws for what is missing there; what is
// logged carries the name of the function, or of the step that is named. No state is
// kept. Processes come and go meanwhile.

// The kernel's boot parameters in order, duplicates kept: name and value, split at the
// first "="; the value is empty without one. Only single spaces separate: two in a row
// make a pair of empty strings, a quoted value with spaces is cut. Error "open
// /proc/cmdline failed.", and an empty list.
ZORV_API std::vector<std::pair<std::string, std::string>> parseKernelCmdline();

// The ancestors of a process, the nearest first; 1 is never among them. Empty for a pid
// below 2. The walk ends at a process whose parent is 1 or cannot be read, with the error
// line "current pid PID." that names it: deliberately an error at the normal end too. It
// ends behind a parent 0, the kernel, which is listed, without a line. (readFile() logs a
// missing process as well.)
//
// Settled: the parent is found by counting the words of the process's line, not by its
// last parenthesis. A word that begins with "(" begins the name and one that ends in ")"
// ends it, so that a name with such a word before its end miscounts: its process counts
// as one that cannot be read, or has a number of its name for a parent.
ZORV_API std::vector<int32_t> getAllParent(int32_t pid);

// Every running executable and the processes that run it, in the order of the listing.
// The path is what the kernel's link says, with " (deleted)" behind a replaced one.
// Processes whose link cannot be read (ended, not allowed, a kernel thread) are left out
// with a debug line, "MESSAGE, REASON", from getProcessExecutablePath. Error "open /proc
// failed.", and an empty map.
ZORV_API std::map<std::string, std::vector<int32_t>> findProcessExeFile();
