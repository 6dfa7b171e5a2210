#pragma once

#include "labelmgr/store/database.h"

// The tables of the store, and which version of them a database holds.

// 0 before its first writer has made them. Throws OperationError, which names the
// database, for tables of a newer version and for a database of something else.
int schemaVersion(Database& database, const std::string& path);

// Makes the tables of the present version, or of those of an older one.
void bringToPresentVersion(Database& database, const std::string& path);

// The same for a connection that only reads, and writes nothing. Changes under way in a
// store of version 1 are not seen.
void showAsPresentVersion(Database& database, int version);

constexpr int kSchemaVersion = 3;
