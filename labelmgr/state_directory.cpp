#include "labelmgr/state_directory.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "labelmgr/operation_error.h"

namespace {

constexpr const char* kDefaultDirectory = "/var/lib/zorv/label";
constexpr const char* kDatabaseName = "label.db";
constexpr const char* kJournalName = "label.db-wal";
constexpr const char* kLockName = "label.lock";
constexpr const char* kScanLockName = "label.scan";
constexpr mode_t kParentMode = 0755;
constexpr mode_t kDirectoryMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr std::chrono::milliseconds kRetryPause{1};
constexpr time_t kCoarsestTick = 2;  // seconds, of file times

void createDirectory(const std::filesystem::path& directory) {
    std::filesystem::path normal = directory.lexically_normal();
    if (!normal.has_filename()) {  // a trailing slash
        normal = normal.parent_path();
    }
    std::filesystem::path made;
    for (const std::filesystem::path& component : normal) {
        made /= component;
        if (mkdir(made.c_str(), made == normal ? kDirectoryMode : kParentMode) != 0 && errno != EEXIST) {
            throw systemError(made);
        }
    }
}

UniqueFd openDirectory(const std::string& path) {
    return UniqueFd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

}  // namespace

std::string configuredPath(const char* variable, const char* defaultPath) {
    const char* configured = secure_getenv(variable);
    return configured != nullptr && *configured != '\0' ? configured : defaultPath;
}

void requireTrusted(const std::string& path, unsigned int owner, unsigned int mode) {
    if (geteuid() != 0) {
        return;
    }
    if (owner != 0) {
        throw OperationError(path, "refused: not owned by root");
    }
    if ((mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw OperationError(path, "refused: writable by others");
    }
}

std::string StateDirectory::configured() {
    return configuredPath("ZORV_LABEL_STATE_DIR", kDefaultDirectory);
}

bool StateDirectory::isLock(const char* fileName) {
    return std::strcmp(fileName, kLockName) == 0;
}

std::optional<StateDirectory> StateDirectory::open(IfMissing ifMissing) {
    const std::string path = configured();
    UniqueFd descriptor = openDirectory(path);
    if (!descriptor && errno == ENOENT) {
        if (ifMissing == IfMissing::kAnswerNothing) {
            return std::nullopt;
        }
        createDirectory(path);
        descriptor = openDirectory(path);
    }
    struct stat status {};
    if (!descriptor || fstat(descriptor.get(), &status) != 0) {
        throw systemError(path);
    }
    requireTrusted(path, status.st_uid, status.st_mode);
    const MallocOwner<char> resolved(
        realpath(path.c_str(), nullptr));  // SQLite refuses links anywhere in a path
    if (!resolved) {
        throw systemError(path);
    }
    return StateDirectory(resolved.get(), std::move(descriptor));
}

std::optional<std::string> StateDirectory::database(IfMissing ifMissing) const {
    const std::string file = path + "/" + kDatabaseName;
    struct stat status {};
    if (fstatat(descriptor.get(), kDatabaseName, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT) {
            throw systemError(file);
        }
        if (ifMissing == IfMissing::kAnswerNothing) {
            return std::nullopt;
        }
        const UniqueFd created(
            openat(descriptor.get(), kDatabaseName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFileMode));
        if (!created) {
            throw systemError(file);
        }
        return file;
    }
    if (!S_ISREG(status.st_mode)) {
        throw OperationError(file, "refused: not a regular file");
    }
    requireTrusted(file, status.st_uid, status.st_mode);
    return file;
}

std::optional<StateDirectory::FileIdentity> StateDirectory::databaseIdentity() const {
    struct stat status {};
    if (fstatat(descriptor.get(), kDatabaseName, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return std::nullopt;
    }
    return FileIdentity(status.st_dev, status.st_ino);
}

std::optional<StateDirectory::Contents> StateDirectory::settledContents() const {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    Contents contents{};
    auto file = contents.begin();
    for (const char* name : {kDatabaseName, kJournalName}) {
        struct stat status {};
        if (fstatat(descriptor.get(), name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
            if (status.st_mtim.tv_sec >= now.tv_sec - kCoarsestTick) {
                return std::nullopt;
            }
            *file = {static_cast<int64_t>(status.st_dev), static_cast<int64_t>(status.st_ino), status.st_size,
                     status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
        }
        ++file;
    }
    return contents;
}

UniqueFd StateDirectory::lockForWriting(std::chrono::steady_clock::time_point deadline) const {
    return lockFile(O_RDWR | O_CREAT, LOCK_EX, deadline);
}

UniqueFd StateDirectory::lockForReading(std::chrono::steady_clock::time_point deadline) const {
    return lockFile(O_RDONLY, LOCK_SH, deadline);
}

std::optional<UniqueFd> StateDirectory::lockForScan() const {
    UniqueFd lock(
        openat(descriptor.get(), kScanLockName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFileMode));
    if (!lock) {
        throw systemError(path + "/" + kScanLockName);
    }
    return flock(lock.get(), LOCK_EX | LOCK_NB) == 0 ? std::optional(std::move(lock)) : std::nullopt;
}

bool StateDirectory::isScanLocked() const {
    const UniqueFd lock(openat(descriptor.get(), kScanLockName, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    return lock && flock(lock.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

bool StateDirectory::hasJournal() const {
    struct stat status {};
    return fstatat(descriptor.get(), kJournalName, &status, AT_SYMLINK_NOFOLLOW) == 0 && status.st_size > 0;
}

UniqueFd StateDirectory::lockFile(int openFlags, int operation,
                                  std::chrono::steady_clock::time_point deadline) const {
    const std::string file = path + "/" + kLockName;
    UniqueFd lock(openat(descriptor.get(), kLockName, openFlags | O_NOFOLLOW | O_CLOEXEC, kFileMode));
    if (!lock) {
        throw systemError(file);
    }
    while (flock(lock.get(), operation | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            throw systemError(file);
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            throw StoreBusy(file, "another change holds the store");
        }
        std::this_thread::sleep_for(kRetryPause);
    }
    return lock;
}
