#include "labelmgr/policy/package_owners.h"

#include <algorithm>
#include <utility>

#include "labelmgr/model/operation_error.h"
#include "labelmgr/store/state_directory.h"
#include "log/logger.h"

namespace {

constexpr const char* kFileName = "package-owners";
constexpr size_t kDirectoriesAskedLast = 16;  // threads ask in turns, each for those of its own directory

// A list that is only a saving is no reason to fail.
template <typename Work>
void attempt(Work work) {
    try {
        work();
    } catch (const OperationError& failure) {
        ZORV_LOG(debug, "%s", failure.what());
    }
}

std::optional<StateDirectory> stateDirectory(const Context& context) {
    return StateDirectory::open(context.stateDirectory, StateDirectory::IfMissing::kAnswerNothing);
}

}  // namespace

std::string PackageOwners::of(const std::string& path) {
    if (!table) {
        findTable(expectsMany ? Ask::kAlways : Ask::kIfKept);
    }
    if (!table) {
        return context.packages->owner(path);
    }
    const size_t slash = path.rfind('/');
    const std::string directory = path.substr(0, std::max<size_t>(slash, 1));
    auto names = askedLast.find(directory);
    if (names == askedLast.end()) {
        if (askedLast.size() == kDirectoriesAskedLast) {
            askedLast.clear();
        }
        names = askedLast.emplace(directory, in(directory)).first;
    }
    return std::string(names->second.ownerOf(std::string_view(path).substr(slash + 1)));
}

void PackageOwners::readAll() {
    if (!table) {
        findTable(Ask::kAlways);
    }
}

OwnedNames PackageOwners::in(const std::string& directory) {
    std::unique_lock<std::mutex> lock(mutex);
    const Table present = table;
    lock.unlock();
    try {
        return present->namesIn(directory);
    } catch (const OperationError& damage) {
        lock.lock();
        if (table == present) {
            ZORV_LOG(debug, "%s", damage.what());
            table = askedFor(context.packages->state(), Ask::kAlways);
        }
        return table->namesIn(directory);
    }
}

void PackageOwners::findTable(Ask ask) {
    const std::optional<DatabaseState> state = context.packages->state();
    if (state) {
        attempt([&] {
            const auto directory = stateDirectory(context);
            if (UniqueFd file = directory ? directory->openKept(kFileName) : UniqueFd()) {
                table = std::make_shared<const OwnerTable>(std::move(file), state->text);
            }
        });
    }
    if (!table) {
        table = askedFor(state, ask);
    }
}

PackageOwners::Table PackageOwners::askedFor(const std::optional<DatabaseState>& state, Ask ask) const {
    std::optional<StateDirectory> directory;
    UniqueFd file;
    if (state && state->isSettled) {
        attempt([&] {
            directory = stateDirectory(context);
            file = directory ? directory->beginKept(kFileName) : UniqueFd();
        });
    }
    if (!file && ask == Ask::kIfKept) {
        return nullptr;
    }
    const ListedOwners listed = context.packages->owners();
    if (!file) {
        return listed.table;
    }
    bool isKept = false;
    const std::optional<DatabaseState> present = context.packages->state();
    if (listed.isOfState && present && present->text == state->text) {
        attempt([&] {
            listed.table->write(file.get(), state->text);
            directory->replaceKept(kFileName);
            isKept = true;
        });
    }
    if (!isKept) {  // so that no half of it takes up a full disk
        attempt([&] { directory->abandonKept(kFileName); });
    }
    return listed.table;
}
