#include "labelmgr/store/columns.h"

Statement& bindTarget(Statement& statement, const Target& target) {
    return statement.bind(static_cast<int64_t>(target.field))
        .bind(target.isPattern ? 1 : 0)
        .bind(target.text);
}

Target readTarget(const Statement& statement, int firstColumn) {
    return {static_cast<Field>(statement.integer(firstColumn)), statement.integer(firstColumn + 1) != 0,
            statement.bytes(firstColumn + 2)};
}

Statement& bindValue(Statement& statement, const FieldValue& value) {
    for (const uint64_t number : numbersOf(value)) {
        statement.bind(toStored(number));
    }
    return statement;
}

UserValue readUserValue(const Statement& statement, int firstColumn, Field field) {
    ValueNumbers numbers{};
    int column = firstColumn;
    for (uint64_t& number : numbers) {
        number = fromStored(statement.integer(++column));
    }
    return {fieldValueOf(field, numbers), statement.integer(firstColumn)};
}
