#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/types.h>
#include <utility>

#include "base/handles.h"
#include "labelmgr/model/operation_error.h"

// Another process holds the store and did not let go in time.
class StoreBusy : public OperationError {
 public:
    using OperationError::OperationError;
};

// The directory that holds the store and its locks. Failures throw OperationError.
class StateDirectory {
 public:
    enum class IfMissing { kAnswerNothing, kCreate };

    // Whether a file of the directory is the writers' lock.
    static bool isLock(const char* fileName);

    // Nothing when it is not there and is not to be created; OperationError when it
    // cannot be used.
    static std::optional<StateDirectory> open(const std::string& configuredPath, IfMissing ifMissing);

    // The database's path. Nothing when it is not there and is not to be created (empty,
    // mode 0600).
    std::optional<std::string> database(IfMissing ifMissing) const;
    // Makes the database's journal, empty, unless it is there.
    void makeJournal() const;
    // Gives the database and its journal other names in the directory, and answers the
    // database's. The caller holds the writers' lock.
    std::string setDatabaseAside() const;
    // Takes that back: the path is what it answered. What has come in its place is
    // removed.
    void putDatabaseBack(const std::string& asidePath) const;
    // The size of the database's journal, which is part of its contents; 0 when there is
    // none.
    off_t journalSize() const;

    // What tells the database from another one in its place; nothing when it is not
    // there.
    using FileIdentity = std::pair<dev_t, ino_t>;
    std::optional<FileIdentity> databaseIdentity() const;

    // What every commit changes: of the database and of its journal identity, size and
    // time of the last write. Nothing while that time is so near that a commit might
    // still come within the same tick of its clock.
    using Contents = std::array<std::array<int64_t, 5>, 2>;
    std::optional<Contents> settledContents() const;

    // The lock that all writers of the store take for the whole of a change. The kernel
    // releases it with the process, so whoever holds it knows that a change that it finds
    // unfinished has nobody left to finish it. Throws StoreBusy, which names the holder.
    UniqueFd lockForWriting(std::chrono::seconds patience) const;

    // The lock that a labelling of a whole tree holds as long as it runs; nothing when
    // another one does.
    std::optional<UniqueFd> lockForScan() const;
    bool isScanLocked() const;

    // Removes what beginKept() made, when nothing is to become of it.
    void abandonKept(const std::string& name) const;
    // A file that can be made anew from what lies elsewhere. None when it is not there;
    // OperationError when it is not a plain file of the caller's own that only the caller
    // may write.
    UniqueFd openKept(const std::string& name) const;
    // An empty file to take its place; none while another process makes one.
    UniqueFd beginKept(const std::string& name) const;
    // Puts it there, whole or not at all.
    void replaceKept(const std::string& name) const;
    void removeKept(const std::string& name) const;

 private:
    StateDirectory(std::string directoryPath, UniqueFd directory)
        : path(std::move(directoryPath)), descriptor(std::move(directory)) {}

    UniqueFd openLock(const char* name) const;

    std::string path;
    UniqueFd descriptor;
};

// The process that holds the flock of a file, by the text of /proc/locks; 0 when none is
// listed, as where a file system lists another device than the one that stat tells.
pid_t lockHolder(const std::string& locks, dev_t device, ino_t inode);
