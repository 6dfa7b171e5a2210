#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "labelmgr/model/context.h"
#include "labelmgr/policy/facts.h"
#include "labelmgr/store/store.h"

// Gives files the labels that they should have, as a scan does, and waits until they are
// on disk. What is gone is passed over, and so is what lies where no labels are written;
// a file that does not take its label is a line in the log. Answers how many of those
// there are. Throws OperationError when the labels may not be on disk. The caller holds
// the store's writers' lock.
size_t labelAnew(Store& store, const Context& context, Facts& facts, const std::vector<std::string>& paths);
