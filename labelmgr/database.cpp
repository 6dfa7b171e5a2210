#include "labelmgr/database.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <thread>

#include "labelmgr/operation_error.h"
#include "log/logger.h"

namespace {

constexpr std::chrono::milliseconds kRetryPause{2};

[[noreturn]] void throwDatabaseError(sqlite3* database, const std::string& path) {
    std::string reason = sqlite3_errmsg(database);
    const int systemReason = sqlite3_system_errno(database);
    if (systemReason != 0) {
        reason.append(" (").append(std::strerror(systemReason)).append(")");
    }
    switch (sqlite3_errcode(database) & 0xff) {  // the primary code
        case SQLITE_CANTOPEN:
        case SQLITE_FULL:
        case SQLITE_IOERR:
        case SQLITE_READONLY:
            throw StoreUnwritable(path, reason);
        default:
            throw OperationError(path, reason);
    }
}

std::string asImmutableUri(const std::string& path) {
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
    return uri.append("?immutable=1");
}

int waitForLock(void* deadline, int /*attempts*/) {
    if (Database::Clock::now() >= *static_cast<const Database::Clock::time_point*>(deadline)) {
        return 0;
    }
    std::this_thread::sleep_for(kRetryPause);
    return 1;
}

}  // namespace

Statement::Statement(sqlite3* database, std::string databasePath, const char* sql)
    : path(std::move(databasePath)) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database, sql, -1, &statement, nullptr) != SQLITE_OK) {
        throwDatabaseError(database, path);
    }
    handle.reset(statement);
}

Statement& Statement::bind(int64_t value) {
    check(sqlite3_bind_int64(handle.get(), ++bound, value));
    return *this;
}

Statement& Statement::bind(std::string_view bytes) {
    const char* data = bytes.data() != nullptr ? bytes.data() : "";  // a null pointer would bind NULL
    check(sqlite3_bind_blob64(handle.get(), ++bound, data, bytes.size(), SQLITE_TRANSIENT));
    return *this;
}

bool Statement::step() {
    const int result = sqlite3_step(handle.get());
    if (result == SQLITE_ROW) {
        return true;
    }
    if (result != SQLITE_DONE) {
        throwDatabaseError(sqlite3_db_handle(handle.get()), path);
    }
    return false;
}

void Statement::run() {
    while (step()) {
    }
}

int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(handle.get(), column);
}

std::string Statement::bytes(int column) const {
    const void* data = sqlite3_column_blob(handle.get(), column);
    const int size = sqlite3_column_bytes(handle.get(), column);
    return size > 0 ? std::string(static_cast<const char*>(data), static_cast<size_t>(size)) : std::string();
}

void Statement::check(int result) const {
    if (result != SQLITE_OK) {
        throwDatabaseError(sqlite3_db_handle(handle.get()), path);
    }
}

Database::Database(const std::string& databasePath, Mode openMode, Clock::time_point deadline)
    : path(databasePath), mode(openMode), lockDeadline(std::make_unique<Clock::time_point>(deadline)) {
    reopen();
}

void Database::reopen() {
    handle.reset();
    sqlite3* database = nullptr;
    const bool immutable = mode == Mode::kImmutable;
    const std::string name = immutable ? asImmutableUri(path) : path;
    const int flags =
        immutable ? SQLITE_OPEN_READONLY | SQLITE_OPEN_URI : SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW;
    const int opened = sqlite3_open_v2(name.c_str(), &database, flags, nullptr);
    handle.reset(database);
    if (database == nullptr) {
        throw OperationError(path, sqlite3_errstr(opened));
    }
    if (opened != SQLITE_OK) {
        throwDatabaseError(database, path);
    }
    sqlite3_extended_result_codes(database, 1);
    sqlite3_busy_handler(database, waitForLock, lockDeadline.get());
    execute("PRAGMA synchronous = FULL");
}

void Database::executeAll(const char* script) {
    if (sqlite3_exec(handle.get(), script, nullptr, nullptr, nullptr) != SQLITE_OK) {
        throwDatabaseError(handle.get(), path);
    }
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
