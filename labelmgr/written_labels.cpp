#include "labelmgr/written_labels.h"

#include "labelmgr/operation_error.h"
#include "labelmgr/pinned_file.h"
#include "log/logger.h"

bool WrittenLabels::write(const std::string& path, Field field, const FieldValue& value) {
    const LabelBytes present = PinnedFile(path).label();
    Label label = present ? decodeLabel(path, *present) : Label();
    setField(label, field, value);
    return write(path, label);
}

bool WrittenLabels::write(const std::string& path, const Label& label) {
    const PinnedFile file(path);
    LabelBytes present = file.label();
    const LabelBytes wanted = encodeLabel(label);
    if (present == wanted) {
        return false;
    }
    file.setLabel(wanted);
    written.emplace_back(path, std::move(present));
    return true;
}

void WrittenLabels::takeBack() {
    for (auto label = written.rbegin(); label != written.rend(); ++label) {
        try {
            PinnedFile(label->first).setLabel(label->second);
        } catch (const OperationError& failure) {
            ZORV_LOG(error, "the label could not be put back: %s", failure.what());
        }
    }
    written.clear();
}
