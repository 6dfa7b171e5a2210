#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "labelmgr/model/change_kind.h"
#include "labelmgr/model/context.h"
#include "labelmgr/store/store.h"

// What users ask for, each one whole change. Failures throw OperationError, and leave
// nothing changed.

// The target is a canonical path, or a pattern that is safe and absolute.
void setUserValue(const Context& context, const Target& target, const FieldValue& value);
// A pattern takes its own record and those of the paths that it matches. A file that is
// gone can still be deleted from the records. Nothing to delete is a failure.
void deleteUserValue(const Context& context, const Target& target);
void clearUserValues(const Context& context, Field field);

// The records that deleteUserValue would take.
std::vector<UserRecord> findUserValues(Store& store, const Target& target);

// Writes the label of a canonical path anew, as kRestore or kInitialise says, and answers
// its text.
std::string deriveLabel(const Context& context, const std::string& path, ChangeKind kind);

// A package's id. No label changes with it.
void setPackageId(const Context& context, std::string_view name, uint64_t id);
// Throws OperationError when none was set.
void deletePackageId(const Context& context, std::string_view name);
void clearPackageIds(const Context& context);
