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

std::string setAside(const Context& context) {
    const auto directory = StateDirectory::open(context.stateDirectory, StateDirectory::IfMissing::kCreate);
    const UniqueFd lock = directory->lockForWriting(Store::kPatienceForWriters);
    return directory->setDatabaseAside();
}

// In the place of a store that cannot be read.
Status startAnew(Context context, const WantedRecords& wanted, const Options& options,
                 const StoreDamaged& failure) {
    std::optional<ScratchStore> empty;
    if (options.isCheck) {
        context.stateDirectory = empty.emplace().directory();
        printRemark(options, std::string(failure.what()) + "; a new store would take its place");
    } else {
        printRemark(options, std::string(failure.what()) + "; it is now " + setAside(context) +
                                 ", and a new store takes its place");
    }
    printRemark(options,
                "files whose values only the damaged store had keep them until they are labelled anew");
    return bringAbout(context, wanted, options);
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
