#pragma once

#include <string>
#include <vector>

#include "labelmgr/model/context.h"

// A scan labels a whole tree.
//
// Policy and package database are read first, so that nobody waits for them; of a kept
// list of owners only the front, the rest as the walk comes to it. Then it is registered
// in the store, in one transaction with the reading of what users set, and holds a lock
// that shows that it is alive. The walk writes labels without the store: what users
// change meanwhile is noted there, and is written again when the scan ends. Before it is
// told complete, its labels are on disk. A scan whose lock is free and that is still
// registered has died; it counts as interrupted.

// Labels the root, a directory, and everything below it with derived labels; the skipped
// paths and policy's [exclude] and all below them are left alone. Progress goes to
// standard error while that is a terminal; a summary is logged at the end. Answers the
// number of files that could not be labelled. Throws OperationError when it could not
// begin or end. Asked to end by a signal, it ends as interrupted, and then the process by
// that signal.
unsigned long labelWholeTree(const Context& context, const std::string& root,
                             const std::vector<std::string>& skippedPaths, unsigned int threads);

// 0 never, 1 running, 2 complete, 3 interrupted.
int wholeTreeStatus(const Context& context);
