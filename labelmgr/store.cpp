#include "labelmgr/store.h"

#include "labelmgr/escaped_text.h"
#include "labelmgr/operation_error.h"

namespace {

constexpr int64_t kSchemaVersion = 1;

// Targets, names and messages are bytes. An order is never used twice, so that "set last" outlives deletions.
constexpr const char* kSchema = R"(
CREATE TABLE user_value(
    set_order INTEGER PRIMARY KEY AUTOINCREMENT,
    field INTEGER NOT NULL, is_pattern INTEGER NOT NULL, target BLOB NOT NULL,
    package INTEGER NOT NULL, file INTEGER NOT NULL, path INTEGER NOT NULL,
    UNIQUE(field, is_pattern, target)) STRICT;
CREATE TABLE pending_change(
    id INTEGER PRIMARY KEY, operation BLOB NOT NULL,
    field INTEGER NOT NULL, is_pattern INTEGER NOT NULL, target BLOB NOT NULL,
    previous_order INTEGER NOT NULL,  -- 0: there was no value
    package INTEGER NOT NULL, file INTEGER NOT NULL, path INTEGER NOT NULL) STRICT;
CREATE TABLE package_id(name BLOB PRIMARY KEY, id INTEGER NOT NULL) STRICT, WITHOUT ROWID;
CREATE TABLE change_feed(sequence INTEGER PRIMARY KEY AUTOINCREMENT, message BLOB NOT NULL) STRICT;
-- One row at most: the last labelling of the whole system.
CREATE TABLE scan(state INTEGER NOT NULL, process INTEGER NOT NULL) STRICT;
-- What was changed while it ran.
CREATE TABLE scan_change(
    field INTEGER NOT NULL, is_pattern INTEGER NOT NULL, target BLOB NOT NULL,
    UNIQUE(field, is_pattern, target)) STRICT;
PRAGMA user_version = 1;
)";

int64_t toStored(uint64_t number) {
    return static_cast<int64_t>(number);
}
uint64_t fromStored(int64_t number) {
    return static_cast<uint64_t>(number);
}

Statement& bindTarget(Statement& statement, const Target& target) {
    return statement.bind(static_cast<int64_t>(target.field))
        .bind(target.isPattern ? 1 : 0)
        .bind(target.text);
}

Statement& bindValue(Statement& statement, const FieldValue& value) {
    return statement.bind(toStored(value.package)).bind(toStored(value.file)).bind(toStored(value.path));
}

// Reads set order, package, file and path from four columns.
UserValue readUserValue(const Statement& statement, int firstColumn) {
    UserValue value;
    value.order = statement.integer(firstColumn);
    value.value = {fromStored(statement.integer(firstColumn + 1)),
                   fromStored(statement.integer(firstColumn + 2)),
                   fromStored(statement.integer(firstColumn + 3))};
    return value;
}

}  // namespace

std::optional<Store> Store::openExisting() {
    const auto deadline = Database::Clock::now() + kPatience;
    const auto directory = StateDirectory::open(StateDirectory::IfMissing::kAnswerNothing);
    const auto file =
        directory ? directory->database(StateDirectory::IfMissing::kAnswerNothing) : std::nullopt;
    if (!file) {
        return std::nullopt;
    }
    const auto openedAs = [&](Database::Mode mode, UniqueFd fileLock) {
        std::optional<Store> store = Store(*file, mode, deadline, std::move(fileLock));
        if (store->schemaVersion() == 0) {  // its first writer has not come to the tables
            store.reset();
        }
        return store;
    };
    try {
        return openedAs(Database::Mode::kReadWrite, UniqueFd());
    } catch (const StoreUnwritable&) {
        // Without a journal left to read, the file itself is the whole store as long as writers are kept out.
        if (directory->hasJournal()) {
            throw;
        }
        return openedAs(Database::Mode::kImmutable, directory->lockForReading(deadline));
    }
}

Store Store::openForWriting(std::chrono::seconds patience) {
    const auto deadline = Database::Clock::now() + patience;
    const auto directory = StateDirectory::open(StateDirectory::IfMissing::kCreate);
    UniqueFd lock = directory->lockForWriting(deadline);
    const auto file = directory->database(StateDirectory::IfMissing::kCreate);
    Store store(*file, Database::Mode::kReadWrite, deadline, std::move(lock));
    store.createSchema();
    return store;
}

Store::Store(const std::string& databasePath, Database::Mode mode, Database::Clock::time_point deadline,
             UniqueFd fileLock)
    : lock(std::move(fileLock)), database(databasePath, mode, deadline) {
    Statement look = database.prepare(  // one statement, so that no writer comes in between
        "SELECT user_version, (SELECT count(*) FROM sqlite_schema) FROM pragma_user_version");
    look.step();
    if (look.integer(0) > kSchemaVersion) {
        throw OperationError(databasePath, "refused: written by a newer version of this library");
    }
    if (look.integer(0) == 0 && look.integer(1) != 0) {
        throw OperationError(databasePath, "refused: not a label store");
    }
}

int64_t Store::schemaVersion() {
    return database.number("PRAGMA user_version");
}

void Store::createSchema() {
    if (schemaVersion() == kSchemaVersion) {
        return;
    }
    database.execute("PRAGMA journal_mode = WAL");
    Transaction transaction = begin();
    database.executeAll(kSchema);
    transaction.commit();
}

std::optional<UserValue> Store::userValue(const Target& target) {
    Statement statement = database.prepare(
        "SELECT set_order, package, file, path FROM user_value WHERE field = ? AND is_pattern = ? AND target "
        "= ?");
    if (!bindTarget(statement, target).step()) {
        return std::nullopt;
    }
    return readUserValue(statement, 0);
}

std::vector<std::pair<Target, UserValue>> Store::userValues(Field field) {
    Statement statement = database.prepare(
        "SELECT is_pattern, target, set_order, package, file, path FROM user_value WHERE field = ?"
        " ORDER BY target, is_pattern");
    statement.bind(static_cast<int64_t>(field));
    std::vector<std::pair<Target, UserValue>> values;
    while (statement.step()) {
        values.emplace_back(Target{field, statement.integer(0) != 0, statement.bytes(1)},
                            readUserValue(statement, 2));
    }
    return values;
}

PatternRules<FieldValue> Store::userPatterns(Field field) {
    Statement statement = database.prepare(
        "SELECT target, set_order, package, file, path FROM user_value WHERE field = ? AND is_pattern = 1"
        " ORDER BY set_order DESC");
    statement.bind(static_cast<int64_t>(field));
    PatternRules<FieldValue> rules;
    while (statement.step()) {
        rules.push_back({statement.bytes(0), readUserValue(statement, 1).value});
    }
    return rules;
}

void Store::setUserValue(const Target& target, const FieldValue& value) {
    Statement statement = database.prepare(
        "INSERT OR REPLACE INTO user_value(field, is_pattern, target, package, file, path) VALUES(?, ?, ?, "
        "?, ?, ?)");
    bindValue(bindTarget(statement, target), value).run();
}

void Store::restoreUserValue(const Target& target, const std::optional<UserValue>& previous) {
    Statement remove =
        database.prepare("DELETE FROM user_value WHERE field = ? AND is_pattern = ? AND target = ?");
    bindTarget(remove, target).run();
    if (previous) {
        Statement insert = database.prepare(
            "INSERT INTO user_value(field, is_pattern, target, package, file, path, set_order)"
            " VALUES(?, ?, ?, ?, ?, ?, ?)");
        bindValue(bindTarget(insert, target), previous->value).bind(previous->order).run();
    }
}

bool Store::hasPendingChanges() {
    return database.number("SELECT count(*) FROM pending_change") != 0;
}

std::vector<PendingChange> Store::pendingChanges() {
    Statement statement = database.prepare(
        "SELECT operation, field, is_pattern, target, previous_order, package, file, path FROM "
        "pending_change ORDER BY id");
    std::vector<PendingChange> changes;
    while (statement.step()) {
        PendingChange change;
        change.operation = statement.bytes(0);
        change.target = {static_cast<Field>(statement.integer(1)), statement.integer(2) != 0,
                         statement.bytes(3)};
        if (statement.integer(4) != 0) {
            change.previous = readUserValue(statement, 4);
        }
        changes.push_back(std::move(change));
    }
    return changes;
}

void Store::addPendingChange(const PendingChange& change) {
    Statement statement = database.prepare(
        "INSERT INTO pending_change(operation, field, is_pattern, target, package, file, path, "
        "previous_order)"
        " VALUES(?, ?, ?, ?, ?, ?, ?, ?)");
    const UserValue previous = change.previous.value_or(UserValue{});
    statement.bind(change.operation);
    bindValue(bindTarget(statement, change.target), previous.value).bind(previous.order).run();

    Statement scan = database.prepare(
        "INSERT OR IGNORE INTO scan_change(field, is_pattern, target)"
        " SELECT ?, ?, ? WHERE EXISTS(SELECT 1 FROM scan WHERE state = 1)");
    bindTarget(scan, change.target).run();
}

ScanState Store::scan() {
    Statement statement = database.prepare("SELECT state, process FROM scan");
    ScanState scan;
    if (statement.step()) {
        scan.status = static_cast<ScanStatus>(statement.integer(0));
        scan.process = statement.integer(1);
    }
    return scan;
}

void Store::setScan(const ScanState& scan) {
    database.execute("DELETE FROM scan");
    database.execute("DELETE FROM scan_change");
    database.prepare("INSERT INTO scan(state, process) VALUES(?, ?)")
        .bind(static_cast<int64_t>(scan.status))
        .bind(scan.process)
        .run();
}

std::vector<Target> Store::changesDuringScan() {
    Statement statement =
        database.prepare("SELECT field, is_pattern, target FROM scan_change ORDER BY rowid");
    std::vector<Target> targets;
    while (statement.step()) {
        targets.push_back(
            {static_cast<Field>(statement.integer(0)), statement.integer(1) != 0, statement.bytes(2)});
    }
    return targets;
}

int64_t Store::lastMessage() {
    return database.number("SELECT max(sequence) FROM change_feed");
}

int64_t Store::firstMessage() {
    return database.number("SELECT min(sequence) FROM change_feed");
}

std::vector<FeedMessage> Store::messagesAfter(int64_t sequence, size_t most) {
    Statement statement = database.prepare(
        "SELECT sequence, message FROM change_feed WHERE sequence > ? ORDER BY sequence LIMIT ?");
    statement.bind(sequence).bind(static_cast<int64_t>(most));
    std::vector<FeedMessage> messages;
    while (statement.step()) {
        messages.push_back({statement.integer(0), statement.bytes(1)});
    }
    return messages;
}

void Store::dropPendingChanges() {
    database.execute("DELETE FROM pending_change");
}

std::optional<uint64_t> Store::packageId(std::string_view name) {
    Statement statement = database.prepare("SELECT id FROM package_id WHERE name = ?");
    if (!statement.bind(name).step()) {
        return std::nullopt;
    }
    return fromStored(statement.integer(0));
}

std::vector<PackageId> Store::packageIds() {
    Statement statement = database.prepare("SELECT name, id FROM package_id ORDER BY name");
    std::vector<PackageId> ids;
    while (statement.step()) {
        ids.push_back({statement.bytes(0), fromStored(statement.integer(1))});
    }
    return ids;
}

void Store::setPackageId(std::string_view name, uint64_t id) {
    database.prepare("INSERT OR REPLACE INTO package_id(name, id) VALUES(?, ?)")
        .bind(name)
        .bind(toStored(id))
        .run();
}

bool Store::removePackageId(std::string_view name) {
    database.prepare("DELETE FROM package_id WHERE name = ?").bind(name).run();
    return database.changedRows() > 0;
}

void Store::addMessage(std::string_view topic, std::string_view operation, std::string_view target,
                       std::string_view value) {
    std::string message(topic);
    for (const std::string_view word : {operation, target, value}) {
        message.append(1, ' ').append(asOneWord(word));
    }
    database.prepare("INSERT INTO change_feed(message) VALUES(?)").bind(message).run();
    database.execute(
        "DELETE FROM change_feed WHERE sequence <= (SELECT max(sequence) FROM change_feed) - 100000");
}
