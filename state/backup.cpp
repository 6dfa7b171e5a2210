#include <optional>

#include "labelmgr/change/session.h"
#include "labelmgr/port/process_context.h"
#include "state/commands.h"
#include "state/new_file.h"
#include "state/progress.h"

Status runBackup(const Options& options) {
    const Context context = processContext();
    std::optional<Store> store = openToRead(context);
    if (!store) {
        throw OperationError(context.stateDirectory, "nothing was ever set, and so there is no store");
    }
    NewFile file(options.operands.front());
    const Progress progress(options, "copying the store");
    store->copyTo(file.temporaryPath());
    file.commit();
    return Status::kDone;
}
