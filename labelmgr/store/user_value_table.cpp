#include "labelmgr/store/user_value_table.h"

#include <algorithm>

#include "labelmgr/store/columns.h"

std::optional<UserValue> UserValueTable::find(const Target& target) {
    Statement statement = database.prepare(
        "SELECT set_order, package, file, path FROM user_value"
        " WHERE field = ? AND is_pattern = ? AND target = ?");
    if (!bindTarget(statement, target).step()) {
        return std::nullopt;
    }
    return readUserValue(statement, 0, target.field);
}

// In the order of the index, paths and patterns each for themselves: SQLite would sort
// them all anew.
std::vector<UserRecord> UserValueTable::all(Field field) {
    Statement statement = database.prepare(
        "SELECT field, is_pattern, target, set_order, package, file, path FROM user_value"
        " WHERE field = ? ORDER BY is_pattern, target");
    statement.bind(static_cast<int64_t>(field));
    std::vector<UserRecord> records;
    while (statement.step()) {
        records.push_back({readTarget(statement, 0), readUserValue(statement, 3, field)});
    }
    const auto isPattern = [](const UserRecord& record) { return record.target.isPattern; };
    std::inplace_merge(
        records.begin(), std::find_if(records.begin(), records.end(), isPattern), records.end(),
        [](const UserRecord& left, const UserRecord& right) { return left.target.text < right.target.text; });
    return records;
}

PatternRules<FieldValue> UserValueTable::patterns(Field field) {
    Statement statement = database.prepare(
        "SELECT target, set_order, package, file, path FROM user_value"
        " WHERE field = ? AND is_pattern = 1 ORDER BY set_order DESC");
    statement.bind(static_cast<int64_t>(field));
    PatternRules<FieldValue> rules;
    while (statement.step()) {
        rules.push_back({statement.bytes(0), readUserValue(statement, 1, field).value});
    }
    return rules;
}

void UserValueTable::set(const Target& target, const FieldValue& value) {
    Statement statement = database.prepare(
        "INSERT OR REPLACE INTO user_value(field, is_pattern, target, package, file, path)"
        " VALUES(?, ?, ?, ?, ?, ?)");
    bindValue(bindTarget(statement, target), value).run();
}

void UserValueTable::remove(const Target& target) {
    Statement statement =
        database.prepare("DELETE FROM user_value WHERE field = ? AND is_pattern = ? AND target = ?");
    bindTarget(statement, target).run();
}

void UserValueTable::putBack(const UserRecord& record) {
    remove(record.target);
    Statement statement = database.prepare(
        "INSERT INTO user_value(field, is_pattern, target, package, file, path, set_order)"
        " VALUES(?, ?, ?, ?, ?, ?, ?)");
    bindValue(bindTarget(statement, record.target), record.value.value).bind(record.value.order).run();
}
