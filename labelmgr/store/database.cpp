#include "labelmgr/store/database.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <thread>
#include <unistd.h>

#include "labelmgr/store/file_lock.h"
#include "labelmgr/store/state_directory.h"
#include "log/logger.h"

namespace {

constexpr std::chrono::milliseconds kRetryPause{2};
// SQLite's own connections lock 510 bytes of a database for reading, as its file format
// says. Of these, one is for our readers and one for our writer.
constexpr LockedBytes kReadersByte{0x40000002, 1};
constexpr LockedBytes kWritersByte{0x40000003, 1};

std::string asUri(const std::string& path, const char* options) {
    std::string uri = "file:";
    for (const char c : path) {
        if (c == '%' || c == '?' || c == '#') {
            std::array<char, 4> escaped{};
            std::snprintf(escaped.data(), escaped.size(), "%%%02X", static_cast<unsigned int>(c));
            uri.append(escaped.data());
        } else {
            uri.push_back(c);
        }
    }
    return uri.append(options);
}

UniqueFd lockDatabase(const std::string& path, bool isWriter, std::chrono::seconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    UniqueFd file(open(path.c_str(), (isWriter ? O_RDWR : O_RDONLY) | O_NOFOLLOW | O_CLOEXEC));
    if (!file) {
        throw systemError(path);
    }
    while (!(isWriter ? tryLockBytes(file.get(), LockKind::kExclusive, kWritersByte)
                      : tryLockBytes(file.get(), LockKind::kShared, kReadersByte))) {
        if (errno != EAGAIN && errno != EACCES) {
            throw systemError(path);
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            throw StoreBusy(path, "another program has locked the database");
        }
        std::this_thread::sleep_for(kRetryPause);
    }
    return file;
}

// "unix-none", but that a journal which is there is not opened as if it were new: SQLite
// would wait for the directory at its first commit.
const char* vfsName() {
    static const bool isRegistered = [] {
        static const sqlite3_vfs* const system = sqlite3_vfs_find("unix-none");
        static sqlite3_vfs own = *system;
        own.zName = "zorv-store";
        own.xOpen = [](sqlite3_vfs* vfs, const char* name, sqlite3_file* file, int flags, int* outFlags) {
            const bool isThere = (flags & SQLITE_OPEN_WAL) != 0 && access(name, F_OK) == 0;
            return system->xOpen(vfs, name, file, isThere ? flags & ~SQLITE_OPEN_CREATE : flags, outFlags);
        };
        return sqlite3_vfs_register(&own, 0) == SQLITE_OK;
    }();
    return isRegistered ? "zorv-store" : "unix-none";
}

// The journal alone could make SQLite take any file for a database.
void requireDatabase(const UniqueFd& file, const std::string& path) {
    using namespace std::string_view_literals;
    constexpr std::string_view kMagic = "SQLite format 3\0"sv;
    std::array<char, kMagic.size()> begin{};
    const ssize_t size = pread(file.get(), begin.data(), begin.size(), 0);
    if (size < 0) {
        throw systemError(path);
    }
    if (size > 0 && std::string_view(begin.data(), begin.size()) != kMagic) {
        throw StoreDamaged(path, "file is not a database");
    }
}

}  // namespace

Statement::Statement(Database& on, const char* sql)
    : database(on), text(sql), handle(database.take(sql).release()) {}

Statement::~Statement() {
    database.giveBack(text, Database::Prepared(handle));
}

Statement& Statement::bind(int64_t value) {
    check(sqlite3_bind_int64(handle, ++bound, value));
    return *this;
}

Statement& Statement::bind(std::string_view bytes) {
    const char* data = bytes.data() != nullptr ? bytes.data() : "";  // a null pointer would bind NULL
    check(sqlite3_bind_blob64(handle, ++bound, data, bytes.size(), SQLITE_TRANSIENT));
    return *this;
}

Statement& Statement::bindNull() {
    check(sqlite3_bind_null(handle, ++bound));
    return *this;
}

bool Statement::step() {
    const int result = sqlite3_step(handle);
    if (result == SQLITE_ROW) {
        return true;
    }
    if (result != SQLITE_DONE) {
        database.fail();
    }
    return false;
}

void Statement::run() {
    while (step()) {
    }
    check(sqlite3_reset(handle));
    bound = 0;
}

int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(handle, column);
}

std::string Statement::bytes(int column) const {
    const void* data = sqlite3_column_blob(handle, column);
    const int size = sqlite3_column_bytes(handle, column);
    return size > 0 ? std::string(static_cast<const char*>(data), static_cast<size_t>(size)) : std::string();
}

bool Statement::isNull(int column) const {
    return sqlite3_column_type(handle, column) == SQLITE_NULL;
}

void Statement::check(int result) const {
    if (result != SQLITE_OK) {
        database.fail();
    }
}

Database::Database(const std::string& databasePath, Mode openMode, std::chrono::seconds patience)
    : path(databasePath), mode(openMode), lockedFile(lockDatabase(path, mode == Mode::kReadWrite, patience)) {
    requireDatabase(lockedFile, path);
    reopen();
}

void Database::reopen() {
    idle.clear();
    handle.reset();
    sqlite3* database = nullptr;
    const std::string name = asUri(path, mode == Mode::kFrozen ? "?immutable=1" : "");
    const int flags = SQLITE_OPEN_URI | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX |
                      (mode == Mode::kReadWrite ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY);
    const int opened = sqlite3_open_v2(name.c_str(), &database, flags, vfsName());
    handle.reset(database);
    if (database == nullptr) {
        throw OperationError(path, sqlite3_errstr(opened));
    }
    if (opened != SQLITE_OK) {
        fail();
    }
    sqlite3_extended_result_codes(database, 1);
    sqlite3_db_config(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    executeAll(
        "PRAGMA locking_mode = EXCLUSIVE; PRAGMA synchronous = FULL; PRAGMA wal_autocheckpoint = 0;"
        "PRAGMA mmap_size = 0; PRAGMA temp_store = MEMORY;"
        "PRAGMA cache_size = -16384");  // in KiB: about 100,000 records
}

void Database::shorten() {
    if (!tryLockBytes(lockedFile.get(), LockKind::kExclusive, kReadersByte)) {
        return;
    }
    const int result =
        sqlite3_wal_checkpoint_v2(handle.get(), nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
    if (result != SQLITE_OK) {  // it is only longer than it need be
        ZORV_LOG(warn, "%s: the journal was not shortened: %s", path.c_str(), sqlite3_errmsg(handle.get()));
        reopen();  // or what is in the database by now would be written over in the journal
    }
    unlockBytes(lockedFile.get(), kReadersByte);
}

void Database::requireSound() {
    Statement look = prepare("PRAGMA integrity_check(1)");
    const std::string found = look.step() ? look.bytes(0) : "no answer";
    if (found != "ok") {
        failAsDamaged(found);
    }
}

void Database::copyTo(const std::string& file) {
    prepare("VACUUM INTO CAST(? AS TEXT)").bind(file).run();
}

void Database::executeAll(const char* script) {
    if (sqlite3_exec(handle.get(), script, nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail();
    }
}

Database::Prepared Database::take(const char* sql) {
    const auto found = idle.find(sql);
    if (found != idle.end()) {
        return std::move(idle.extract(found).mapped());
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v3(handle.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) !=
        SQLITE_OK) {
        fail();
    }
    return Prepared(statement);
}

void Database::giveBack(const char* sql, Prepared statement) {
    if (sqlite3_db_handle(statement.get()) != handle.get()) {
        return;  // of a connection that was closed since
    }
    sqlite3_reset(statement.get());
    sqlite3_clear_bindings(statement.get());
    try {
        idle.emplace(sql, std::move(statement));
    } catch (const std::bad_alloc&) {
        return;  // it is prepared anew the next time
    }
}

void Database::fail() const {
    std::string reason = sqlite3_errmsg(handle.get());
    const int kind = sqlite3_errcode(handle.get()) & 0xff;
    if (kind == SQLITE_CORRUPT || kind == SQLITE_NOTADB) {
        throw StoreDamaged(path, reason);
    }
    const int systemReason = sqlite3_system_errno(handle.get());
    if (systemReason != 0) {
        reason.append(" (").append(std::strerror(systemReason)).append(")");
    }
    throw OperationError(path, reason);
}

void Database::failAsDamaged(const std::string& reason) const {
    throw StoreDamaged(path, "damaged: " + asOneLine(reason));
}

int64_t Database::number(const char* sql) {
    Statement statement = prepare(sql);
    return statement.step() ? statement.integer(0) : 0;
}

Transaction::~Transaction() {
    if (!database.inTransaction()) {
        return;
    }
    try {
        database.execute("ROLLBACK");
    } catch (const OperationError& failure) {
        ZORV_LOG(error, "rollback failed: %s", failure.what());
    }
}
