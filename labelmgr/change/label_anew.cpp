#include "labelmgr/change/label_anew.h"

#include <cerrno>
#include <memory>

#include "labelmgr/change/label_writer.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/policy/label_deriver.h"
#include "log/logger.h"

namespace {

// As a walk leaves alone what lies on network, FUSE and pseudo file systems, and on those
// without attributes.
bool isLeftAlone(const SeenFile& file) {
    return file.reason == EREMOTE || file.reason == ENOTSUP ||
           (file.reason == 0 && kindOfDevice(file.status.device) == FileSystemKind::kPseudo);
}

}  // namespace

size_t labelAnew(Store& store, const Context& context, Facts& facts, const std::vector<std::string>& paths) {
    constexpr auto kObserve = LabelDeriver::UserValues::kObserve;
    LabelDeriver deriver(&store, facts);
    deriver.expectFiles(paths.size());
    LabelWriter writer(context);
    FilePinner pinner(context);
    size_t failed = 0;
    for (const std::string& path : paths) {
        try {
            SeenFile seen{path, {}, std::nullopt};
            const std::unique_ptr<PinnedFile> pin = pinner.pinAndSee(seen);
            if (isLeftAlone(seen) || (pin && pin->isOnReadOnlyFileSystem())) {
                continue;
            }
            if (!pin) {
                throwFileError(path, seen.reason);
            }
            const PinnedFile& file = *pin;
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
