#include "labelmgr/store/scan_table.h"

#include "labelmgr/store/columns.h"

ScanState ScanTable::state() {
    Statement statement = database.prepare("SELECT state, process FROM scan");
    if (!statement.step()) {
        return {};
    }
    return {static_cast<ScanStatus>(statement.integer(0)), statement.integer(1)};
}

void ScanTable::set(const ScanState& state) {
    database.execute("DELETE FROM scan");
    database.execute("DELETE FROM scan_change");
    database.prepare("INSERT INTO scan(state, process) VALUES(?, ?)")
        .bind(static_cast<int64_t>(state.status))
        .bind(state.process)
        .run();
}

void ScanTable::noteChange(const Target& target) {
    Statement statement =
        database.prepare("INSERT OR IGNORE INTO scan_change(field, is_pattern, target) VALUES(?, ?, ?)");
    bindTarget(statement, target).run();
}

std::vector<Target> ScanTable::changes() {
    Statement statement =
        database.prepare("SELECT field, is_pattern, target FROM scan_change ORDER BY rowid");
    std::vector<Target> targets;
    while (statement.step()) {
        targets.push_back(readTarget(statement, 0));
    }
    return targets;
}
