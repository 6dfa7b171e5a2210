#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "labelmgr/database.h"
#include "labelmgr/field.h"
#include "labelmgr/pattern_rules.h"
#include "labelmgr/state_directory.h"

// What users set, the changes under way and the messages about finished ones, in SQLite (WAL, full
// synchronisation). Statements only; which of them make one change is user_values' affair. Failures throw
// OperationError.

// What a value belongs to: a canonical path, or the text of a pattern.
struct Target {
    Field field = Field::kOid;
    bool isPattern = false;
    std::string text;
};

// A value that a user set. Of several the one with the greatest order was set last.
struct UserValue {
    FieldValue value{};
    int64_t order = 0;
};

// A recorded change whose files may not have been brought in line yet, with the value that it replaced.
struct PendingChange {
    std::string operation;
    Target target;
    std::optional<UserValue> previous;
};

struct PackageId {
    std::string name;
    uint64_t id = 0;
};

// The numbers are what the port answers.
enum class ScanStatus { kNever = 0, kRunning = 1, kComplete = 2, kInterrupted = 3 };

struct ScanState {
    ScanStatus status = ScanStatus::kNever;
    int64_t process = 0;
};

struct FeedMessage {
    int64_t sequence = 0;
    std::string text;
};

class Store {
 public:
    // For reading: nothing where nothing was ever set. Works on a full or read-only file system, too.
    static std::optional<Store> openExisting();
    // How long to wait for other processes before an operation fails.
    static constexpr std::chrono::seconds kPatience{10};
    // For writing: creates what is missing and waits for other writers. StoreBusy when they do not let go.
    static Store openForWriting(std::chrono::seconds patience = kPatience);

    Transaction begin() { return Transaction(database); }
    // A new connection under the same lock, for when the present one has been left unusable by a failure.
    void reconnect() { database.reopen(); }

    std::optional<UserValue> userValue(const Target& target);
    // All values of a field, ordered by target.
    std::vector<std::pair<Target, UserValue>> userValues(Field field);
    // The patterns of a field, the one that was set last first.
    PatternRules<FieldValue> userPatterns(Field field);
    void setUserValue(const Target& target, const FieldValue& value);
    // Puts back exactly what pending changes replaced.
    void restoreUserValue(const Target& target, const std::optional<UserValue>& previous);
    void removeUserValue(const Target& target) { restoreUserValue(target, std::nullopt); }

    bool hasPendingChanges();
    std::vector<PendingChange> pendingChanges();
    void addPendingChange(const PendingChange& change);
    void dropPendingChanges();

    // The labelling of the whole system. While one is registered as running, addPendingChange also keeps its
    // target as a change during it; setScan forgets those.
    ScanState scan();
    void setScan(const ScanState& scan);
    std::vector<Target> changesDuringScan();

    std::optional<uint64_t> packageId(std::string_view name);
    std::vector<PackageId> packageIds();
    void setPackageId(std::string_view name, uint64_t id);
    // False when the name had none.
    bool removePackageId(std::string_view name);

    // Adds a message of four words to the change feed, which keeps the newest 100,000.
    void addMessage(std::string_view topic, std::string_view operation, std::string_view target,
                    std::string_view value);

    // The feed's messages in the order of their commits, numbered without gaps; 0 is "none yet".
    int64_t firstMessage();
    int64_t lastMessage();
    std::vector<FeedMessage> messagesAfter(int64_t sequence, size_t most);

 private:
    Store(const std::string& databasePath, Database::Mode mode, Database::Clock::time_point deadline,
          UniqueFd fileLock);

    int64_t schemaVersion();
    void createSchema();

    UniqueFd lock;  // released after the database is closed
    Database database;
};
