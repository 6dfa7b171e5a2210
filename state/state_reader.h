#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "state/records.h"

// Puts the next bytes into a buffer and answers how many; 0 at the end.
using ReadBytes = std::function<size_t(char* buffer, size_t size)>;

// Reads a state file. Anything that is not as it should be throws OperationError with the
// name, the line and the reason: no JSON, an unknown or repeated key, a value that is
// none, a record without a name or a value, a part of the document that is missing,
// another format, a version from the future, more than 256 MiB. The same name twice is
// left to whoever knows which names are the same file. Memory grows with the records
// only.
Records readState(const ReadBytes& read, const std::string& name);
