#include "state/backup_reader.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <system_error>

#include "common/wildcard.h"
#include "labelmgr/store/schema.h"
#include "state/scratch_store.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kDatabase = "/label.db";
constexpr const char* kJournal = "-wal";

void copy(const std::string& from, const std::string& to) {
    std::error_code failure;
    if (!fs::is_regular_file(from, failure)) {
        throw failure ? systemError(from, failure.value()) : OperationError(from, "not a regular file");
    }
    fs::copy_file(from, to, failure);
    if (failure) {
        throw systemError(from, failure.value());
    }
}

// The tables and their columns.
std::string layoutOf(Database& database) {
    Statement look = database.prepare(
        "SELECT object.type || ' ' || object.name || ' ' || ifnull(part.name || ' ' || part.type, '')"
        " FROM sqlite_schema AS object LEFT JOIN pragma_table_info(object.name) AS part"
        " WHERE object.name NOT LIKE 'sqlite\\_%' ESCAPE '\\' ORDER BY 1");
    std::string layout;
    while (look.step()) {
        layout.append(look.bytes(0)).append("\n");
    }
    return layout;
}

std::string presentLayout() {
    const ScratchStore scratch;
    Store::openToWrite(scratch.directory());
    Database database(scratch.directory() + kDatabase, Database::Mode::kReadWrite,
                      Store::kPatienceForDatabase);
    return layoutOf(database);
}

bool isName(const std::string& name) {
    return !name.empty() && name.size() < PATH_MAX && name.find('\0') == std::string::npos;
}

bool isPossible(const Records& records) {
    return std::all_of(records.paths.begin(), records.paths.end(),
                       [](const ValueRecord& record) {
                           return isName(record.target.text) && record.target.text.front() == '/';
                       }) &&
           std::all_of(records.patterns.begin(), records.patterns.end(),
                       [](const ValueRecord& record) {
                           return isPatternSafe(record.target.text) && record.target.text.front() == '/';
                       }) &&
           std::all_of(records.packages.begin(), records.packages.end(),
                       [](const PackageRecord& record) { return isName(record.package.name); });
}

Records readCopy(const std::string& file, const std::string& name) {
    Database database(file, Database::Mode::kReadWrite, Store::kPatienceForDatabase);
    database.requireSound();
    if (schemaVersion(database, name) == 0) {
        throw OperationError(name, "refused: not a label store");
    }
    bringToPresentVersion(database, name);
    if (layoutOf(database) != presentLayout()) {
        throw OperationError(name, "refused: not a label store");
    }
    PendingTable(database).showFormerValues();
    Records records = recordsOf(UserValueTable(database), PackageIdTable(database));
    if (!isPossible(records)) {
        throw OperationError(name, "refused: holds what no user can have set");
    }
    return records;
}

}  // namespace

Records readBackup(const std::string& file) {
    const ScratchStore scratch;
    const std::string present = scratch.directory() + kDatabase;
    copy(file, present);
    if (fs::exists(file + kJournal)) {
        copy(file + kJournal, present + kJournal);
    }
    try {
        return readCopy(present, file);
    } catch (const StoreDamaged& failure) {  // the copy, which nobody knows by its name
        throw OperationError(file, std::string(failure.what()).substr(present.size() + 2));
    }
}
