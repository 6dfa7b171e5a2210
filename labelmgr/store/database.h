#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include <sqlite3.h>

#include "base/handles.h"
#include "labelmgr/model/operation_error.h"

// Owners of SQLite's handles. A failure throws OperationError with the database's path
// and SQLite's reason. One connection is used by one thread at a time, of one process.
//
// The database has a write-ahead journal. SQLite would share an index of it between
// processes in a mapped file, and a full disk under a mapped file ends the process. Here
// each connection keeps an index of its own in memory, and SQLite takes no locks. What
// its locks guaranteed is guaranteed otherwise:
// - one process writes at a time: the writers' lock of the state directory;
// - a reader sees the commits that were in the journal when it opened: the journal only
//   grows, but for
// - shorten(), which takes the journal into the database and empties it while nobody
// reads.
//
// Other programs that use SQLite as usual share an index that our writers do not keep up
// to date, and put the journal away when the last of them closes. So a writer holds one
// of the bytes that each of them locks, and waits while one of them has the database
// open; a reader of ours holds another, which keeps them from putting the journal away.

// The bytes are no database, or one whose parts do not fit together, or a foreign one.
class StoreDamaged : public OperationError {
 public:
    using OperationError::OperationError;
};

class Database;

// A prepared statement of a database, which must outlive it. Values are bound by position
// from 1, columns read by position from 0. Texts are bytes (BLOBs).
class Statement {
 public:
    // The text must stay where it is as long as the database.
    Statement(Database& on, const char* sql);
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement();

    Statement& bind(int64_t value);
    Statement& bind(std::string_view bytes);
    Statement& bindNull();

    // True while there is a row. The last step of a statement that answers no rows runs
    // it.
    bool step();
    // Runs a statement that answers no rows; it can then be bound and run again.
    void run();

    int64_t integer(int column) const;
    std::string bytes(int column) const;
    bool isNull(int column) const;

 private:
    void check(int result) const;

    Database& database;
    const char* text;
    sqlite3_stmt* handle;
    int bound = 0;
};

class Database {
 public:
    // kFrozen: without its journal, for a journal that is empty or not there; needs no
    // file that is not there, and no disk that takes writes.
    enum class Mode { kReadWrite, kRead, kFrozen };

    // Opens an existing file. Throws StoreBusy when another program keeps it locked for
    // longer than the patience.
    Database(const std::string& databasePath, Mode openMode, std::chrono::seconds patience);
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database() = default;

    // Closes and opens it again.
    void reopen();
    // Takes the journal into the database, unless somebody reads.
    void shorten();

    // Looks at all of it. Throws StoreDamaged.
    void requireSound();
    // Writes what it holds, without the journal, to an empty file.
    void copyTo(const std::string& file);

    // What was prepared once is kept for the next time.
    Statement prepare(const char* sql) { return {*this, sql}; }
    void execute(const char* sql) { prepare(sql).run(); }
    // Several statements without values.
    void executeAll(const char* script);
    int64_t number(const char* sql);
    [[noreturn]] void failAsDamaged(const std::string& reason) const;
    bool inTransaction() const { return sqlite3_get_autocommit(handle.get()) == 0; }

 private:
    friend class Statement;
    struct Closer {
        void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
    };
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    using Prepared = std::unique_ptr<sqlite3_stmt, Finalizer>;

    Prepared take(const char* sql);
    void giveBack(const char* sql, Prepared statement);
    [[noreturn]] void fail() const;

    std::string path;
    Mode mode;
    UniqueFd lockedFile;  // let go after the connection
    std::unique_ptr<sqlite3, Closer> handle;
    std::unordered_multimap<const char*, Prepared> idle;  // finalized before the connection is closed
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
