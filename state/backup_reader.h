#pragma once

#include <string>

#include "state/records.h"

// What users had set by a backup: any copy of the database, with its journal beside it if
// it has one. A change that was under way counts as taken back. Throws OperationError for
// a file that is damaged, of something else or of a newer version.
Records readBackup(const std::string& file);
