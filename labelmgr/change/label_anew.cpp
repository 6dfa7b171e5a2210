#include "labelmgr/change/label_anew.h"

#include "labelmgr/change/label_writer.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/policy/label_deriver.h"
#include "log/logger.h"

size_t labelAnew(Store& store, const Context& context, Facts& facts, const std::vector<std::string>& paths) {
    constexpr auto kObserve = LabelDeriver::UserValues::kObserve;
    LabelDeriver deriver(&store, facts);
    deriver.expectFiles(paths.size());
    LabelWriter writer(context);
    FilePinner pinner(context);
    size_t failed = 0;
    for (const std::string& path : paths) {
        try {
            const PinnedFile file = pinner.pin(path);
            writer.setLabel(file, encodeLabel(deriver.label(path, file.mode(), kObserve)));
        } catch (const FileGone&) {
            continue;  // nothing to bring in line
        } catch (const OperationError& failure) {
            ZORV_LOG(error, "%s", failure.what());
            ++failed;
        }
    }
    writer.flush();
    return failed;
}
