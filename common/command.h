#pragma once

#include <string>
#include <vector>

#include "base/api.h"

// External programs. Nothing throws for one that fails. No state is kept; both functions
// may be called from a process with threads.

// Runs the program at exactly this path (PATH is not searched) with these arguments, the
// program name not among them, and the caller's environment, standard input and standard
// error, but with no other descriptor of the caller's; waits for its end and answers the
// lines that it wrote to its standard output, each without its line feed. Signal
// dispositions and masks are left alone.
//
// Lines come in pieces of at most 1,023 bytes, and this is relied upon: a longer line is
// several elements, and one of exactly 1,023 bytes is followed by an empty element. A
// piece ends at its first NUL, as a C string does; the pieces behind it are whole again.
//
// Every failure is one error line under "executeCommand" and an empty answer, whatever
// the program wrote before:
//   "Command path is empty."
//   "pipe failed: REASON", "fork failed: REASON", "fdopen failed: REASON"
//   "Command failed [STATUS]: PATH", with status 1 also for a program that could not be
//   executed
//   "Command killed by signal NUMBER: PATH"
// In a caller that ignores SIGCHLD the exit status is lost, and the lines are answered
// whatever it was.
ZORV_API std::vector<std::string> executeCommand(const std::string& path,
                                                 const std::vector<std::string>& args);

// Whether a directory of the environment's PATH, joined with "/" and the name as they
// stand, holds an entry with the owner's execute bit, links followed. That bit alone is
// looked at, on purpose: not the caller's own rights, and a directory counts too. An
// empty field of PATH means the root directory here, not the current one. False without
// PATH.
ZORV_API bool commandExists(const std::string& name);
