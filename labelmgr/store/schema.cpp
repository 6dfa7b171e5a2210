#include "labelmgr/store/schema.h"

#include "labelmgr/store/columns.h"
#include "labelmgr/store/pending_table.h"

namespace {

// Targets, names and messages are bytes. An order is never used twice, so that "set last"
// outlives deletions.
constexpr const char* kTables = R"(
CREATE TABLE user_value(
    set_order INTEGER PRIMARY KEY AUTOINCREMENT,
    field INTEGER NOT NULL, is_pattern INTEGER NOT NULL, target BLOB NOT NULL,
    package INTEGER NOT NULL, file INTEGER NOT NULL, path INTEGER NOT NULL,
    UNIQUE(field, is_pattern, target)) STRICT;
CREATE TABLE package_id(name BLOB PRIMARY KEY, id INTEGER NOT NULL) STRICT, WITHOUT ROWID;
CREATE TABLE change_feed(sequence INTEGER PRIMARY KEY AUTOINCREMENT, message BLOB NOT NULL) STRICT;
-- One row at most: the last labelling of a whole tree.
CREATE TABLE scan(state INTEGER NOT NULL, process INTEGER NOT NULL) STRICT;
-- What was changed while it ran.
CREATE TABLE scan_change(
    field INTEGER NOT NULL, is_pattern INTEGER NOT NULL, target BLOB NOT NULL,
    UNIQUE(field, is_pattern, target)) STRICT;
)";

constexpr const char* kPendingRecords = R"(
CREATE TABLE pending_record(
    id INTEGER PRIMARY KEY,
    field INTEGER NOT NULL, is_pattern INTEGER NOT NULL, target BLOB NOT NULL,
    previous_order INTEGER NOT NULL,  -- 0: there was no value
    package INTEGER NOT NULL, file INTEGER NOT NULL, path INTEGER NOT NULL) STRICT;
)";
constexpr const char* kPendingFiles = R"(
CREATE TABLE pending_files(
    id INTEGER PRIMARY KEY, files BLOB NOT NULL, checksum INTEGER NOT NULL,
    is_left INTEGER NOT NULL DEFAULT 0) STRICT;  -- 1: of a change that is taken back otherwise
)";

// Version 1 did not keep the labels that a change replaced. A change of it that was left
// unfinished is taken back in the list, and the labels of its files are derived anew like
// those of changes made during a scan that died.
constexpr const char* kFromVersion1 = R"(
DELETE FROM user_value WHERE EXISTS(SELECT 1 FROM pending_change AS former
    WHERE former.field = user_value.field AND former.is_pattern = user_value.is_pattern
    AND former.target = user_value.target);
INSERT INTO user_value(set_order, field, is_pattern, target, package, file, path)
    SELECT previous_order, field, is_pattern, target, package, file, path FROM pending_change
    WHERE previous_order != 0 AND field < 4;
INSERT OR IGNORE INTO scan_change SELECT field % 4, is_pattern, target FROM pending_change;
DELETE FROM scan WHERE EXISTS(SELECT 1 FROM pending_change);
INSERT INTO scan SELECT 1, 0 FROM pending_change LIMIT 1;
DROP TABLE pending_change;
)";

// Version 2 had a row for each file. What is left is older than a change under way, and
// must be put back after it.
void takeOverFiles(Database& database) {
    for (const bool areLeft : {true, false}) {
        std::vector<PendingFile> files;
        Statement statement = database.prepare(
            "SELECT path, device, inode, former, wanted FROM pending_file WHERE is_left = ? ORDER BY id");
        statement.bind(areLeft ? 1 : 0);
        while (statement.step()) {
            files.push_back(
                {statement.bytes(0), fromStored(statement.integer(1)), fromStored(statement.integer(2)),
                 statement.isNull(3) ? std::nullopt : std::optional(statement.bytes(3)), statement.bytes(4)});
        }
        const FilesToKeep kept = toKeep(files);
        areLeft ? PendingTable(database).setLeftLabels(kept) : PendingTable(database).add(kept);
    }
}

}  // namespace

int schemaVersion(Database& database, const std::string& path) {
    Statement look = database.prepare(  // one statement, so that no writer comes in between
        "SELECT user_version, (SELECT count(*) FROM sqlite_schema) FROM pragma_user_version");
    look.step();
    if (look.integer(0) > kSchemaVersion) {
        throw OperationError(path, "refused: written by a newer version of this library");
    }
    if (look.integer(0) == 0 && look.integer(1) != 0) {
        throw StoreDamaged(path, "refused: not a label store");
    }
    return static_cast<int>(look.integer(0));
}

void bringToPresentVersion(Database& database, const std::string& path) {
    const int version = schemaVersion(database, path);
    if (version == kSchemaVersion) {
        return;
    }
    if (version == 0) {
        database.execute("PRAGMA journal_mode = WAL");
    }
    Transaction transaction(database);
    if (version < 2) {
        database.executeAll(version == 0 ? kTables : kFromVersion1);
        database.executeAll(kPendingRecords);
    }
    database.executeAll(kPendingFiles);
    if (version == 2) {
        takeOverFiles(database);
        database.executeAll("DROP TABLE pending_file");
    }
    database.executeAll("PRAGMA user_version = 3");
    transaction.commit();
}

void showAsPresentVersion(Database& database, int version) {
    if (version == kSchemaVersion) {
        return;
    }
    database.executeAll("CREATE TEMP TABLE pending_files(id INTEGER PRIMARY KEY, files, checksum, is_left)");
    if (version == 2) {
        takeOverFiles(database);
    } else {
        database.executeAll(
            "CREATE TEMP TABLE pending_record(id, field, is_pattern, target, previous_order, package, file,"
            " path)");
    }
}
