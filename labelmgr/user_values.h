#pragma once

#include <optional>
#include <string>
#include <vector>

#include "labelmgr/derived_label.h"
#include "labelmgr/field.h"
#include "labelmgr/store.h"

// Changes of what users set, as whole changes: the record and the attribute of every file concerned, or
// neither.
//
// A change is two transactions under the store's writer lock. The first records it, and beside it, as
// pending, what it replaces. The second brings the attributes in line with the records, adds the messages and
// drops the pending rows. A process that dies in between leaves pending rows, which the next one to open the
// store finishes before its own work; so it does with the changes that a labelling of the whole system which
// died may have overwritten. When an attribute cannot be written, the files already done and the records go
// back to what they were.
//
// Failures throw OperationError.

// For changing: everything that was left unfinished is finished.
Store openUserValues();
// The same, but nothing where nothing was ever set.
std::optional<Store> changeExistingUserValues();
// For reading: nothing where nothing was ever set.
std::optional<Store> readUserValues();

// The target is a canonical path, or a pattern that is safe and absolute.
void setUserValue(const Target& target, const FieldValue& value);
// A pattern takes its own record and those of the paths that it matches. A file that is gone can still be
// deleted from the records. Nothing to delete is a failure.
void deleteUserValue(const Target& target);
void clearUserValues(Field field);

// The records that deleteUserValue would take.
std::vector<std::pair<Target, UserValue>> findUserValues(Store& store, const Target& target);

// Writes the label of a canonical path anew and answers its text.
std::string restoreLabel(const std::string& path, UserValues userValues);

// Ends a labelling of the whole system: changes that were made while it ran hold again, and what came of it
// is kept.
void endScan(Store& store, const ScanState& scan, const std::string& root, const std::string& summary);
