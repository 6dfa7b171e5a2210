#pragma once

#include <chrono>
#include <optional>

#include "labelmgr/model/context.h"
#include "labelmgr/store/store.h"

// The ways to the store. Each sees first to what a dead process left. Failures throw
// OperationError.

// To change something: what was left is finished, and other writers are kept out.
Store openToChange(const Context& context, std::chrono::seconds patience = Store::kPatienceForWriters);
// The same, but nothing where nothing was ever set.
std::optional<Store> openToChangeIfThere(const Context& context);

// To read: nothing where nothing was ever set. What was left is finished if that can be
// done now; if not, it is read as if it had been.
std::optional<Store> openToRead(const Context& context);
