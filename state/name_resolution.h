#pragma once

#include <string>

#include "state/records.h"

// Gives the records of a state file the names by which the label manager knows files:
// links resolved, and the paths in order. A record that is present as it stands is known
// by its name already, and its file may be gone. Throws OperationError with the file's
// name and the line: a path that is not there, unless that is allowed, a pattern that is
// not safe, two records about the same.
void resolveNames(Records& wanted, const Records& present, const std::string& fileName, bool allowsMissing);
