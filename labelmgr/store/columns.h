#pragma once

#include "labelmgr/model/user_value.h"
#include "labelmgr/store/database.h"

// How values of the model stand in the columns of tables.

// SQLite's integers are signed.
inline int64_t toStored(uint64_t number) {
    return static_cast<int64_t>(number);
}
inline uint64_t fromStored(int64_t number) {
    return static_cast<uint64_t>(number);
}

// Three columns: field, is_pattern, target.
Statement& bindTarget(Statement& statement, const Target& target);
Target readTarget(const Statement& statement, int firstColumn);

// Three columns: package, file, path.
Statement& bindValue(Statement& statement, const FieldValue& value);

// Four columns: the order, then the value.
UserValue readUserValue(const Statement& statement, int firstColumn, Field field);
