#include "labelmgr/port/process_context.h"
#include "labelmgr/store/store.h"
#include "state/backup_reader.h"
#include "state/change_of_state.h"
#include "state/commands.h"
#include "state/output.h"
#include "state/scratch_store.h"

namespace {

void requireSoundStore(const Context& context) {
    if (std::optional<Store> store = Store::openToRead(context.stateDirectory)) {
        store->requireSound();
    }
}

// Work with a new store in the place of the present one, which comes back when that
// fails.
template <typename Work>
Status withNewStore(const Context& context, Work work) {
    const auto directory = StateDirectory::open(context.stateDirectory, StateDirectory::IfMissing::kCreate);
    std::string aside;
    {
        const UniqueFd lock = directory->lockForWriting(Store::kPatienceForWriters);
        aside = directory->setDatabaseAside();
    }
    try {
        return work(aside);
    } catch (const std::exception&) {
        const UniqueFd lock = directory->lockForWriting(Store::kPatienceForWriters);
        directory->putDatabaseBack(aside);
        throw;
    }
}

// In the place of a store that cannot be read.
Status startAnew(Context context, const WantedRecords& wanted, const Options& options,
                 const StoreDamaged& failure) {
    const auto bring = [&](const std::string& whatHappened) {
        printRemark(options, std::string(failure.what()) + "; " + whatHappened);
        printRemark(options,
                    "files whose values only the damaged store had keep them until they are labelled anew");
        return bringAbout(context, wanted, options);
    };
    if (options.isCheck) {
        const ScratchStore empty;
        context.stateDirectory = empty.directory();
        return bring("a new store would take its place");
    }
    return withNewStore(context, [&](const std::string& aside) {
        return bring("it is now " + aside + ", and a new store takes its place");
    });
}

}  // namespace

Status runRestore(const Options& optionsOfRun) {
    Options options = optionsOfRun;
    options.allowsMissing = true;  // what was set on a file is known when it comes back
    const Records records = readBackup(options.operands.front());
    const WantedRecords wanted = [&records](const Records& /*present*/) { return Records(records); };
    const Context context = processContext();
    try {
        requireSoundStore(context);
        return bringAbout(context, wanted, options);
    } catch (const StoreDamaged& failure) {
        return startAnew(context, wanted, options, failure);
    }
}
