#include "labelmgr/store/pending_table.h"

#include "labelmgr/store/columns.h"

namespace {

PendingFile readFile(const Statement& statement) {
    PendingFile file{statement.bytes(0), fromStored(statement.integer(1)), fromStored(statement.integer(2)),
                     std::nullopt, statement.bytes(4)};
    if (!statement.isNull(3)) {
        file.former = statement.bytes(3);
    }
    return file;
}

}  // namespace

bool PendingTable::isEmpty() {
    return database.number(
               "SELECT EXISTS(SELECT 1 FROM pending_record) OR EXISTS(SELECT 1 FROM pending_file WHERE "
               "is_left = 0)") == 0;
}

void PendingTable::clear() {
    database.execute("DELETE FROM pending_record");
    database.execute(hasLeftLabels() ? "DELETE FROM pending_file WHERE is_left = 0"
                                     : "DELETE FROM pending_file");  // all are dropped at once
}

void PendingTable::showFormerValues() {
    database.executeAll(R"(
CREATE TEMP TABLE user_value AS SELECT * FROM main.user_value AS present
    WHERE NOT EXISTS(SELECT 1 FROM pending_record AS former WHERE former.field = present.field
        AND former.is_pattern = present.is_pattern AND former.target = present.target);
INSERT INTO temp.user_value(set_order, field, is_pattern, target, package, file, path)
    SELECT previous_order, field, is_pattern, target, package, file, path FROM pending_record
    WHERE previous_order != 0)");
}

bool PendingTable::hasLeftLabels() {
    return database.number("SELECT EXISTS(SELECT 1 FROM pending_file WHERE is_left = 1)") != 0;
}

void PendingTable::setLeftLabels(const std::vector<PendingFile>& files) {
    database.execute("DELETE FROM pending_file WHERE is_left = 1");
    for (const PendingFile& file : files) {
        insert(file, true);
    }
}

void PendingTable::add(const FormerRecord& record) {
    Statement statement = database.prepare(
        "INSERT INTO pending_record(field, is_pattern, target, package, file, path, previous_order)"
        " VALUES(?, ?, ?, ?, ?, ?, ?)");
    const UserValue former = record.value.value_or(UserValue{fieldValueOf(record.target.field, {}), 0});
    bindValue(bindTarget(statement, record.target), former.value).bind(former.order).run();
}

std::vector<FormerRecord> PendingTable::records() {
    Statement statement = database.prepare(
        "SELECT field, is_pattern, target, previous_order, package, file, path FROM pending_record"
        " ORDER BY id");
    std::vector<FormerRecord> records;
    while (statement.step()) {
        FormerRecord record{readTarget(statement, 0), std::nullopt};
        if (statement.integer(3) != 0) {
            record.value = readUserValue(statement, 3, record.target.field);
        }
        records.push_back(std::move(record));
    }
    return records;
}

void PendingTable::add(const PendingFile& file) {
    insert(file, false);
}

void PendingTable::insert(const PendingFile& file, bool isLeft) {
    Statement statement = database.prepare(
        "INSERT INTO pending_file(path, device, inode, former, wanted, is_left)"
        " VALUES(?, ?, ?, ?, ?, ?)");
    statement.bind(file.path).bind(toStored(file.device)).bind(toStored(file.inode));
    file.former ? statement.bind(*file.former) : statement.bindNull();
    statement.bind(file.wanted).bind(isLeft ? 1 : 0).run();
}

std::vector<PendingFile> PendingTable::files() {
    Statement statement =
        database.prepare("SELECT path, device, inode, former, wanted FROM pending_file ORDER BY id");
    std::vector<PendingFile> files;
    while (statement.step()) {
        files.push_back(readFile(statement));
    }
    return files;
}

std::optional<PendingFile> PendingTable::file(const std::string& path) {
    Statement statement = database.prepare(
        "SELECT path, device, inode, former, wanted FROM pending_file WHERE path = ? ORDER BY id");
    return statement.bind(path).step() ? std::optional(readFile(statement)) : std::nullopt;
}
