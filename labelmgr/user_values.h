#pragma once

#include <optional>
#include <string>
#include <vector>

#include "labelmgr/field.h"
#include "labelmgr/store.h"

// Changes of what users set, as whole changes: the record and the attribute of every file concerned, or
// neither.
//
// A change is two transactions under the store's writer lock. The first records it, and beside it, as
// pending, what it replaces. The second brings the attributes in line with the records, adds the messages and
// drops the pending rows. A process that dies in between leaves pending rows, which the next one to open the
// store finishes before its own work. When an attribute cannot be written, the files already done and the
// records go back to what they were.
//
// Failures throw OperationError.

// For changing: every change that was left unfinished is finished.
Store openUserValues();
// The same, but nothing where nothing was ever set.
std::optional<Store> changeExistingUserValues();
// For reading: nothing where nothing was ever set.
std::optional<Store> readUserValues();

void setUserValue(Field field, const std::string& path, const FieldValue& value);
// A file that is gone can still be deleted from the records.
void deleteUserValue(Field field, const std::string& path);
// Every path of the field.
void clearUserValues(Field field);
