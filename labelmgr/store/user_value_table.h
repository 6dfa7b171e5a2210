#pragma once

#include <optional>
#include <string>
#include <vector>

#include "labelmgr/model/pattern_rules.h"
#include "labelmgr/model/user_value.h"
#include "labelmgr/store/database.h"

// What users set.
class UserValueTable {
 public:
    explicit UserValueTable(Database& in) : database(in) {}

    std::optional<UserValue> find(const Target& target);
    // All records of a field, ordered by target.
    std::vector<UserRecord> all(Field field);
    // The patterns of a field, the one that was set last first.
    PatternRules<FieldValue> patterns(Field field);

    // The last one set from now on.
    void set(const Target& target, const FieldValue& value);
    void remove(const Target& target);
    // Puts a record back into its place among the others.
    void putBack(const UserRecord& record);

 private:
    Database& database;
};
