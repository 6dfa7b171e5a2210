#pragma once

#include <string>

#include "labelmgr/model/field.h"

// What a change does. The first three change what users set, the last two derive a file's
// whole label anew: with what users set, or by policy alone.
enum class ChangeKind { kSet, kDelete, kClear, kRestore, kInitialise };

constexpr bool writesWholeLabel(ChangeKind kind) {
    return kind == ChangeKind::kRestore || kind == ChangeKind::kInitialise;
}

// As messages tell it: "set_tid", "restore_label". A whole label is of no field.
std::string operationOf(ChangeKind kind, Field field);
// The same for the id of a package: "set_id".
std::string packageOperationOf(ChangeKind kind);
