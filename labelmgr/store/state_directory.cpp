#include "labelmgr/store/state_directory.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <thread>
#include <unistd.h>

#include "labelmgr/store/file_lock.h"
#include "labelmgr/store/trusted_path.h"

namespace {

constexpr const char* kDatabaseName = "label.db";
constexpr const char* kJournalName = "label.db-wal";
constexpr const char* kLockName = "label.lock";
constexpr const char* kScanLockName = "label.scan";
constexpr mode_t kParentMode = 0755;
constexpr mode_t kDirectoryMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr std::chrono::milliseconds kRetryPause{1};
constexpr time_t kCoarsestTick = 2;  // seconds, of file times
constexpr LockedBytes kWholeFile{0, 0};
constexpr const char* kNewSuffix = ".new";

UniqueFd openDirectory(const std::string& path) {
    return UniqueFd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// A new directory is on disk when its parent is.
void flushDirectory(const std::string& path) {
    const UniqueFd directory = openDirectory(path);
    if (!directory || fsync(directory.get()) != 0) {
        throw systemError(path);
    }
}

void createDirectory(const std::filesystem::path& directory) {
    std::filesystem::path normal = directory.lexically_normal();
    if (!normal.has_filename()) {  // a trailing slash
        normal = normal.parent_path();
    }
    std::filesystem::path made;
    for (const std::filesystem::path& component : normal) {
        const std::filesystem::path parent = made.empty() ? "." : made;
        made /= component;
        if (mkdir(made.c_str(), made == normal ? kDirectoryMode : kParentMode) == 0) {
            flushDirectory(parent);
        } else if (errno != EEXIST) {
            throw systemError(made);
        }
    }
}

// A file that is not believed, or written to, when anybody else may have a hand in it.
void requirePrivate(const std::string& file, const struct stat& status) {
    if (!S_ISREG(status.st_mode) || status.st_uid != geteuid() || status.st_nlink != 1 ||
        (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw OperationError(file, "refused: not a plain file that only its user may write");
    }
}

std::string contentOf(const char* path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

bool StateDirectory::isLock(const char* fileName) {
    return std::strcmp(fileName, kLockName) == 0;
}

std::optional<StateDirectory> StateDirectory::open(const std::string& configuredPath, IfMissing ifMissing) {
    UniqueFd descriptor = openDirectory(configuredPath);
    if (!descriptor && errno == ENOENT) {
        if (ifMissing == IfMissing::kAnswerNothing) {
            return std::nullopt;
        }
        createDirectory(configuredPath);
        descriptor = openDirectory(configuredPath);
    }
    struct stat status {};
    if (!descriptor || fstat(descriptor.get(), &status) != 0) {
        throw systemError(configuredPath);
    }
    requireTrusted(configuredPath, status.st_uid, status.st_mode);
    const MallocOwner<char> resolved(realpath(configuredPath.c_str(), nullptr));
    if (!resolved) {  // SQLite refuses links anywhere in a path
        throw systemError(configuredPath);
    }
    requireTrustedParents(resolved.get());
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

void StateDirectory::makeJournal() const {
    constexpr int kFlags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const UniqueFd journal(openat(descriptor.get(), kJournalName, kFlags, kFileMode));
    if (journal ? fsync(descriptor.get()) != 0 : errno != EEXIST) {
        throw systemError(path + "/" + kJournalName);
    }
}

std::string StateDirectory::setDatabaseAside() const {
    std::string name = std::string(kDatabaseName) + ".damaged";
    struct stat status {};
    for (int number = 2; fstatat(descriptor.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
         ++number) {
        name = std::string(kDatabaseName) + ".damaged-" + std::to_string(number);
    }
    // The journal first: left alone, it would become that of the next database.
    for (const std::string suffix : {"-wal", ""}) {
        const int result = renameat(descriptor.get(), (kDatabaseName + suffix).c_str(), descriptor.get(),
                                    (name + suffix).c_str());
        if ((result != 0 && errno != ENOENT) || fsync(descriptor.get()) != 0) {
            throw systemError(path + "/" + kDatabaseName);
        }
    }
    return path + "/" + name;
}

void StateDirectory::putDatabaseBack(const std::string& asidePath) const {
    // Without the journal of the other one.
    const std::string journal = path + "/" + kJournalName;
    unlink(journal.c_str());
    if (rename(asidePath.c_str(), (path + "/" + kDatabaseName).c_str()) != 0 ||
        (rename((asidePath + "-wal").c_str(), journal.c_str()) != 0 && errno != ENOENT)) {
        throw systemError(asidePath);
    }
}

off_t StateDirectory::journalSize() const {
    struct stat status {};
    if (fstatat(descriptor.get(), kJournalName, &status, AT_SYMLINK_NOFOLLOW) == 0) {
        return status.st_size;
    }
    if (errno != ENOENT) {
        throw systemError(path + "/" + kJournalName);
    }
    return 0;
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

UniqueFd StateDirectory::openLock(const char* name) const {
    UniqueFd lock(openat(descriptor.get(), name, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFileMode));
    struct stat status {};
    if (!lock || fstat(lock.get(), &status) != 0) {
        throw systemError(path + "/" + name);
    }
    requireTrusted(path + "/" + name, status.st_uid, status.st_mode);
    return lock;
}

UniqueFd StateDirectory::lockForWriting(std::chrono::seconds patience) const {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    UniqueFd lock = openLock(kLockName);
    while (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            throw systemError(path + "/" + kLockName);
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            struct stat status {};
            const pid_t holder = fstat(lock.get(), &status) == 0
                                     ? lockHolder(contentOf("/proc/locks"), status.st_dev, status.st_ino)
                                     : 0;
            throw StoreBusy(path + "/" + kLockName,
                            "another change holds the store" +
                                (holder > 0 ? ": process " + std::to_string(holder) : std::string()));
        }
        std::this_thread::sleep_for(kRetryPause);
    }
    return lock;
}

std::optional<UniqueFd> StateDirectory::lockForScan() const {
    UniqueFd lock = openLock(kScanLockName);
    return tryLockBytes(lock.get(), LockKind::kExclusive, kWholeFile) ? std::optional(std::move(lock))
                                                                      : std::nullopt;
}

bool StateDirectory::isScanLocked() const {
    const UniqueFd lock(openat(descriptor.get(), kScanLockName, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    return lock && areBytesLocked(lock.get(), LockKind::kShared, kWholeFile);
}

void StateDirectory::abandonKept(const std::string& name) const {
    if (unlinkat(descriptor.get(), (name + kNewSuffix).c_str(), 0) != 0) {
        throw systemError(path + "/" + name + kNewSuffix);
    }
}

UniqueFd StateDirectory::openKept(const std::string& name) const {
    UniqueFd file(openat(descriptor.get(), name.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
        if (errno == ENOENT) {
            return {};
        }
        throw systemError(path + "/" + name);
    }
    requirePrivate(path + "/" + name, status);
    return file;
}

UniqueFd StateDirectory::beginKept(const std::string& name) const {
    const std::string newName = name + kNewSuffix;
    UniqueFd file = openLock(newName.c_str());
    struct stat opened {};
    struct stat named {};
    if (!tryLockBytes(file.get(), LockKind::kExclusive, kWholeFile) ||
        fstatat(descriptor.get(), newName.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0 ||
        fstat(file.get(), &opened) != 0 || opened.st_ino != named.st_ino) {
        return {};  // another process is at it, or has just put its own in place
    }
    requirePrivate(path + "/" + newName, opened);
    if (ftruncate(file.get(), 0) != 0) {
        throw systemError(path + "/" + newName);
    }
    return file;
}

void StateDirectory::replaceKept(const std::string& name) const {
    const std::string newName = name + kNewSuffix;
    if (renameat(descriptor.get(), newName.c_str(), descriptor.get(), name.c_str()) != 0) {
        throw systemError(path + "/" + name);
    }
}

void StateDirectory::removeKept(const std::string& name) const {
    if (unlinkat(descriptor.get(), name.c_str(), 0) != 0) {
        if (errno == ENOENT) {
            return;
        }
        throw systemError(path + "/" + name);
    }
    if (fsync(descriptor.get()) != 0) {
        throw systemError(path);
    }
}

// "1: FLOCK  ADVISORY  WRITE 4711 08:02:131 0 EOF"; of who waits, "1: -> FLOCK ...".
pid_t lockHolder(const std::string& locks, dev_t device, ino_t inode) {
    std::array<char, 64> wanted{};
    std::snprintf(wanted.data(), wanted.size(), "%02x:%02x:%ju", major(device), minor(device),
                  uintmax_t{inode});
    std::istringstream lines(locks);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string number;
        std::string kind;
        std::string word;
        std::string file;
        pid_t process = 0;
        if (words >> number >> kind >> word >> word >> process >> file && kind == "FLOCK" &&
            file == wanted.data()) {
            return process;
        }
    }
    return 0;
}
