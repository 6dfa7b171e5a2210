#include "labelmgr/store/store.h"

#include "labelmgr/store/schema.h"

namespace {

constexpr off_t kLongJournal = 1 << 20;

}  // namespace

std::optional<Store> Store::openToRead(const std::string& directory) {
    constexpr auto kIfMissing = StateDirectory::IfMissing::kAnswerNothing;
    std::optional<StateDirectory> stateDirectory = StateDirectory::open(directory, kIfMissing);
    const auto file = stateDirectory ? stateDirectory->database(kIfMissing) : std::nullopt;
    if (!file) {
        return std::nullopt;
    }
    const auto mode = stateDirectory->journalSize() > 0 ? Database::Mode::kRead : Database::Mode::kFrozen;
    Store store(std::move(*stateDirectory), *file, mode, UniqueFd());
    const int version = schemaVersion(*store.database, *file);
    if (version == 0) {
        return std::nullopt;
    }
    store.isOlder = version < kSchemaVersion;
    showAsPresentVersion(*store.database, version);
    return store;
}

bool Store::isThere(const std::string& directory) {
    constexpr auto kIfMissing = StateDirectory::IfMissing::kAnswerNothing;
    const std::optional<StateDirectory> stateDirectory = StateDirectory::open(directory, kIfMissing);
    return stateDirectory && stateDirectory->database(kIfMissing);
}

Store Store::openToWrite(const std::string& directory, std::chrono::seconds patience) {
    constexpr auto kIfMissing = StateDirectory::IfMissing::kCreate;
    std::optional<StateDirectory> stateDirectory = StateDirectory::open(directory, kIfMissing);
    UniqueFd lock = stateDirectory->lockForWriting(patience);
    const std::string file = *stateDirectory->database(kIfMissing);
    stateDirectory->makeJournal();
    const bool isLong = stateDirectory->journalSize() > kLongJournal;
    Store store(std::move(*stateDirectory), file, Database::Mode::kReadWrite, std::move(lock));
    bringToPresentVersion(*store.database, file);
    if (isLong) {
        store.database->shorten();
    }
    return store;
}

Store::Store(StateDirectory directory, const std::string& databasePath, Database::Mode mode,
             UniqueFd writersLock)
    : stateDirectory(std::move(directory)),
      lock(std::move(writersLock)),
      database(std::make_unique<Database>(databasePath, mode, kPatienceForDatabase)) {}
