#include "labelmgr/change/label_writer.h"

#include <cerrno>
#include <unistd.h>
#include <utility>

#include "labelmgr/model/operation_error.h"
#include "log/logger.h"

namespace {

constexpr size_t kFewFiles = 8;  // to flush one by one

}  // namespace

template <typename Work>
void LabelWriter::onFile(const ChangedFile& changed, const LabelBytes& expected, Work work) {
    if (changed.pin) {
        work(*changed.pin);
        return;
    }
    const PinnedFile pin = pinner.pin(changed.file.path);
    if (pin.inode() != changed.file.inode || pin.label() != expected) {
        throw FileGone(changed.file.path, "not the same file with the same label any more");
    }
    work(pin);
}

void LabelWriter::write(const ChangedFile& changed) {
    onFile(changed, changed.file.former, [&](const PinnedFile& pin) { setLabel(pin, changed.file.wanted); });
}

void LabelWriter::setLabel(const PinnedFile& file, const LabelBytes& label) {
    file.setLabel(label);
    ++written;
    if (written > kFewFiles && fileSystems.has(file.device())) {
        return;
    }
    PinnedFile::Flushable flushable = file.openToFlush();
    fileSystems.add(file.device(), flushable.descriptor.get(), file.path());
    if (written <= kFewFiles && flushable.isTheFile) {
        unflushedFiles.push_back(std::move(flushable.descriptor));
    }
}

void LabelWriter::flush() {
    const std::vector<UniqueFd> files = std::move(unflushedFiles);
    const bool areAll = files.size() == std::exchange(written, 0);
    unflushedFiles.clear();
    if (!areAll) {
        fileSystems.flush();
        return;
    }
    fileSystems.clear();
    for (const UniqueFd& file : files) {
        if (fsync(file.get()) != 0) {
            throw OperationError(std::string("a label is not on disk: ") + std::strerror(errno));
        }
    }
}

bool LabelWriter::takeBack(const ChangedFiles& files) {
    bool isDone = true;
    for (auto changed = files.rbegin(); changed != files.rend(); ++changed) {
        const PendingFile& file = changed->file;
        if (!changed->isToBeWritten()) {
            continue;
        }
        try {
            onFile(*changed, file.wanted, [&](const PinnedFile& pin) {
                if (pin.label() == file.wanted) {
                    setLabel(pin, file.former);
                }
            });
        } catch (const FileGone&) {
            continue;  // it has no label of ours
        } catch (const OperationError& failure) {
            ZORV_LOG(error, "the label could not be put back: %s", failure.what());
            isDone = false;
        }
    }
    return isDone;
}

void LabelWriter::writeAgain(const ChangedFiles& files) {
    for (const ChangedFile& changed : files) {
        try {
            if (changed.isToBeWritten()) {
                write(changed);
            }
        } catch (const OperationError& failure) {
            ZORV_LOG(error, "%s", failure.what());
        }
    }
}
