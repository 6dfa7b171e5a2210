#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <sqlite3.h>

// Owners of SQLite's handles. A failure throws OperationError with the database's path and SQLite's reason,
// StoreUnwritable when that is the system's refusal to write. One connection belongs to one thread of one
// process.

// A prepared statement. Values are bound by position from 1, columns read by position from 0. Texts are bytes
// (BLOBs).
class Statement {
 public:
    Statement(sqlite3* database, std::string databasePath, const char* sql);

    Statement& bind(int64_t value);
    Statement& bind(std::string_view bytes);

    // True while there is a row. The last step of a statement that answers no rows runs it.
    bool step();
    // Runs a statement that answers no rows.
    void run();

    int64_t integer(int column) const;
    std::string bytes(int column) const;

 private:
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

    void check(int result) const;

    std::unique_ptr<sqlite3_stmt, Finalizer> handle;
    std::string path;
    int bound = 0;
};

class Database {
 public:
    using Clock = std::chrono::steady_clock;

    // kImmutable: for a file that nobody can change while it is open; needs no journal beside it.
    enum class Mode { kReadWrite, kImmutable };

    // Opens an existing file. Waits for other processes' locks until `deadline`, over all statements
    // together.
    Database(const std::string& databasePath, Mode openMode, Clock::time_point deadline);

    // Closes and opens it again, with the same deadline.
    void reopen();

    Statement prepare(const char* sql) { return {handle.get(), path, sql}; }
    void execute(const char* sql) { prepare(sql).run(); }
    // Several statements without values.
    void executeAll(const char* script);
    int64_t number(const char* sql);
    int64_t changedRows() const { return sqlite3_changes64(handle.get()); }
    bool inTransaction() const { return sqlite3_get_autocommit(handle.get()) == 0; }

 private:
    struct Closer {
        void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
    };

    std::string path;
    Mode mode;
    std::unique_ptr<Clock::time_point> lockDeadline;  // at an address that stays, for the busy handler
    std::unique_ptr<sqlite3, Closer> handle;
};

// A write transaction; rolled back unless it was committed.
class Transaction {
 public:
    explicit Transaction(Database& on) : database(on) { database.execute("BEGIN IMMEDIATE"); }
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void commit() { database.execute("COMMIT"); }

 private:
    Database& database;
};
