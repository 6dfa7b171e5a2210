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
// pending, what it replaces; the second is pending_changes' affair. A process that dies in between leaves
// pending rows, which the next one to open the store sees to before its own work.
//
// Failures throw OperationError, and leave nothing changed.

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
