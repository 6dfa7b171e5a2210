#include <optional>

#include "labelmgr/change/session.h"
#include "labelmgr/port/process_context.h"
#include "state/commands.h"
#include "state/new_file.h"
#include "state/output.h"
#include "state/state_writer.h"

Status runExport(const Options& options) {
    std::optional<Store> store = openToRead(processContext());
    const Records records = store ? recordsOf(store->userValues(), store->packageIds()) : Records();
    store.reset();
    if (options.operands.empty() || options.operands.front() == "-") {
        writeState(records, printBytes);
        return Status::kDone;
    }
    NewFile file(options.operands.front());
    writeState(records, [&file](std::string_view bytes) { file.write(bytes); });
    file.commit();
    return Status::kDone;
}
