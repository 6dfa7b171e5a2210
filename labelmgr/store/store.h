#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "labelmgr/store/feed_table.h"
#include "labelmgr/store/package_id_table.h"
#include "labelmgr/store/pending_table.h"
#include "labelmgr/store/scan_table.h"
#include "labelmgr/store/state_directory.h"
#include "labelmgr/store/user_value_table.h"

// What the label manager remembers: what users set, the change under way and the messages
// about finished ones. Tables only; what makes a change is the affair of change/.
// Failures throw OperationError.
class Store {
 public:
    // An operation waits ten seconds in all.
    static constexpr std::chrono::seconds kPatienceForWriters{8};
    static constexpr std::chrono::seconds kPatienceForDatabase{2};

    // As it was at the last commit; nothing where nothing was ever set. Creates nothing,
    // and works on a full or read-only file system.
    static std::optional<Store> openToRead(const std::string& directory);
    // Whether there is a database, of whatever content: without opening it.
    static bool isThere(const std::string& directory);
    // Creates what is missing, and keeps other writers out as long as it lives. StoreBusy
    // when they do not let go.
    static Store openToWrite(const std::string& directory,
                             std::chrono::seconds patience = kPatienceForWriters);

    Transaction begin() { return Transaction(*database); }
    // A new connection under the same lock, for when the present one has been left
    // unusable by a failure.
    void reconnect() { database->reopen(); }

    // Looks at all of it. Throws StoreDamaged.
    void requireSound() { database->requireSound(); }
    // Writes what it holds to an empty file, while others may write to the store.
    void copyTo(const std::string& file) { database->copyTo(file); }

    // Whether it is of an older version, whose changes under way are seen to when it is
    // next opened to write.
    bool isOfOlderVersion() const { return isOlder; }

    UserValueTable userValues() { return UserValueTable(*database); }
    PackageIdTable packageIds() { return PackageIdTable(*database); }
    PendingTable pending() { return PendingTable(*database); }
    FeedTable feed() { return FeedTable(*database); }
    ScanTable scan() { return ScanTable(*database); }

    const StateDirectory& directory() const { return stateDirectory; }

 private:
    Store(StateDirectory directory, const std::string& databasePath, Database::Mode mode,
          UniqueFd writersLock);

    StateDirectory stateDirectory;
    UniqueFd lock;  // released after the database is closed
    std::unique_ptr<Database> database;
    bool isOlder = false;
};
