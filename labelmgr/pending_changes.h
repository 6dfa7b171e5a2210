#pragma once

#include <string>

#include "labelmgr/store.h"

// The second half of a change, and what is done about halves and scans that a dead process left. The caller
// holds the store's writer lock. Failures throw OperationError.

// The operation of a pending change, as messages tell it. The last two write a whole label.
constexpr const char* kSetOperation = "set";
constexpr const char* kDeleteOperation = "del";
constexpr const char* kClearOperation = "clear";
constexpr const char* kRestoreOperation = "restore";
constexpr const char* kInitOperation = "init";

// Brings the attributes of all files concerned in line with the records, adds the messages, drops the pending
// rows and answers what the last file was given. When it fails, attributes and records are as before the
// change.
std::string finishChanges(Store& store);

// Whether a process died in the middle of a change or of a labelling of the whole system.
bool hasLeftWork(Store& store);

// Finishes what a dead process left when its change had come to the files, and takes it back when it had not.
// What it cannot do to a single file is logged, and does not stop the caller.
void finishLeftWork(Store& store);

// Ends a labelling of the whole system, which works on what was set when it began: changes made since hold
// again. Keeps its status and tells its end.
void endScan(Store& store, ScanStatus status, const std::string& root, const std::string& summary);
