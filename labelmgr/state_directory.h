#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>

#include "base/handles.h"

// Where the label manager keeps its state, and whether it can be trusted.

// A path from the environment, unless the process runs with more privilege than its caller; else the default.
std::string configuredPath(const char* variable, const char* defaultPath);

// As root, throws OperationError for a file or directory that root does not own or that others may write.
void requireTrusted(const std::string& path, unsigned int owner, unsigned int mode);

// The store's directory: $ZORV_LABEL_STATE_DIR or /var/lib/zorv/label.
class StateDirectory {
 public:
    enum class IfMissing { kAnswerNothing, kCreate };

    static std::string configured();
    // Whether a file of the directory is the writers' lock.
    static bool isLock(const char* fileName);

    // Opens it. Nothing when it is not there and is not to be created; OperationError when it cannot be used.
    static std::optional<StateDirectory> open(IfMissing ifMissing);

    // The database's path. Nothing when it is not there and is not to be created (empty, mode 0600).
    std::optional<std::string> database(IfMissing ifMissing) const;

    // What tells the database from another one in its place; nothing when it is not there.
    using FileIdentity = std::pair<dev_t, ino_t>;
    std::optional<FileIdentity> databaseIdentity() const;

    // What every commit changes: of the database and of its journal identity, size and time of the last
    // write. Nothing while that time is so near that a commit might still come within the same tick of its
    // clock.
    using Contents = std::array<std::array<int64_t, 5>, 2>;
    std::optional<Contents> settledContents() const;

    // The lock that all writers of the store take for the whole of a change. The kernel releases it with the
    // process, so whoever holds it knows that a change that it finds unfinished has nobody left to finish it.
    UniqueFd lockForWriting(std::chrono::steady_clock::time_point deadline) const;
    // Keeps writers out, beside any number of readers. Writes nothing.
    UniqueFd lockForReading(std::chrono::steady_clock::time_point deadline) const;

    // The lock that a labelling of the whole system holds as long as it runs; nothing when another one does.
    std::optional<UniqueFd> lockForScan() const;
    bool isScanLocked() const;

    // Whether the database has a journal beside it that is part of its contents.
    bool hasJournal() const;

 private:
    StateDirectory(std::string directoryPath, UniqueFd directory)
        : path(std::move(directoryPath)), descriptor(std::move(directory)) {}

    UniqueFd lockFile(int openFlags, int operation, std::chrono::steady_clock::time_point deadline) const;

    std::string path;
    UniqueFd descriptor;
};
