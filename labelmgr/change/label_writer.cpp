#include "labelmgr/change/label_writer.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>
#include <utility>

#include "labelmgr/model/operation_error.h"
#include "log/logger.h"

namespace {

// Whether a file that is not there was deleted, and not its file system taken away.
bool isDeleted(const PendingFile& file) {
    for (size_t end = file.path.rfind('/'); end != std::string::npos && end > 0;
         end = file.path.rfind('/', end - 1)) {
        try {
            return pinPath(file.path.substr(0, end)).status.device == file.device;
        } catch (const FileGone&) {
            continue;
        }
    }
    return pinRoot().status.device == file.device;
}

}  // namespace

// The same file with a label of this change, the former or the wanted one.
template <typename Work>
void LabelWriter::onFile(const ChangedFile& changed, Work work) {
    if (changed.pin) {
        work(*changed.pin);
        return;
    }
    const PendingFile& file = changed.file;
    const EntryFile entry = pinner.entry(file.path);
    const LabelBytes label = entry.inode() == file.inode ? entry.label() : std::nullopt;
    if (entry.inode() != file.inode || (label != file.former && label != file.wanted)) {
        throw FileGone(file.path, "not the same file with the same label any more");
    }
    work(entry);
}

void LabelWriter::write(const ChangedFile& changed) {
    onFile(changed, [&](const auto& same) { setLabel(same, changed.file.wanted); });
}

void LabelWriter::noteRight(const std::string& path) {
    try {
        note(pinner.pin(path));
    } catch (const FileGone&) {
        return;  // with its label
    }
}

template <typename File>
void LabelWriter::note(const File& file) {
    ++noted;
    if (noted > kFewFiles && fileSystems.has(file.device())) {
        return;
    }
    PinnedFile::Flushable flushable = file.openToFlush();
    fileSystems.add(file.device(), flushable.descriptor.get(), file.path());
    if (noted <= kFewFiles && flushable.isTheFile) {
        unflushedFiles.push_back(std::move(flushable.descriptor));
    }
}

void LabelWriter::flush() {
    const std::vector<UniqueFd> files = std::move(unflushedFiles);
    const bool areAll = files.size() == std::exchange(noted, 0);
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

FilesToKeep LabelWriter::takeBack(const ChangedFiles& files) {
    FilesToKeep left;
    for (auto changed = files.rbegin(); changed != files.rend(); ++changed) {
        const PendingFile& file = changed->file;
        if (!changed->isToBeWritten()) {
            continue;
        }
        try {
            onFile(*changed, [&](const auto& same) {
                if (same.label() == file.wanted) {
                    same.setLabel(file.former);
                }
                note(same);
            });
            continue;
        } catch (const FileGone& failure) {
            if (isDeleted(file)) {
                continue;  // it has no label of ours
            }
            ZORV_LOG(error, "the label could not be put back: %s", failure.what());
        } catch (const OperationError& failure) {
            ZORV_LOG(error, "the label could not be put back: %s", failure.what());
        }
        left.push_back(&file);
    }
    std::reverse(left.begin(), left.end());  // the next time the last is the first again
    return left;
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
