#include "labelmgr/files/file_pinner.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

#include "base/attribute_at.h"
#include "labelmgr/model/operation_error.h"

namespace {

// The root is in itself.
const char* nameIn(const std::string& path) {
    return path.size() > 1 ? path.c_str() + path.rfind('/') + 1 : ".";
}

}  // namespace

EntryFile::EntryFile(const Context& context, const std::string& canonicalPath, const Pin& openDirectory)
    : attribute(context.attribute),
      fullPath(canonicalPath),
      directory(openDirectory.descriptor.get()),
      name(nameIn(canonicalPath)) {
    if (const int reason = lookBelow(openDirectory, name, status)) {
        throwFileError(fullPath, reason);
    }
}

LabelBytes EntryFile::label() const {
    LabelBytes label;
    if (const int reason = readLabelAt(directory, name, attribute, label)) {
        throwFileError(fullPath, reason);
    }
    return label;
}

void EntryFile::setLabel(const LabelBytes& bytes) const {
    const int result = bytes
                           ? setAttributeAt(directory, name, attribute.c_str(), bytes->data(), bytes->size())
                           : removeAttributeAt(directory, name, attribute.c_str());
    if (result != 0 && (bytes || errno != ENODATA)) {
        throwLabelError(fullPath, errno);
    }
}

PinnedFile::Flushable EntryFile::openToFlush() const {
    constexpr int kFlags = O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC;
    const bool isOpened = S_ISREG(mode()) || S_ISDIR(mode());
    PinnedFile::Flushable flushable{UniqueFd(isOpened ? openat(directory, name, kFlags) : -1)};
    if (!flushable.descriptor) {
        flushable.descriptor = UniqueFd(openat(directory, ".", kFlags | O_DIRECTORY));
    }
    if (!flushable.descriptor) {
        throwFileError(fullPath, errno);
    }
    return flushable;
}

PinnedFile FilePinner::pin(const std::string& path) {
    Pin pin;
    if (const int reason = find(path, pin)) {
        throwFileError(path, reason);
    }
    return {context, path, std::move(pin)};
}

std::unique_ptr<PinnedFile> FilePinner::pinAndSee(SeenFile& file) {
    Pin pin;
    file.reason = find(file.path, pin);
    if (file.reason != 0) {
        return nullptr;
    }
    file.status = pin.status;
    auto pinned = std::make_unique<PinnedFile>(context, file.path, std::move(pin));
    file.reason = pinned->readLabel(file.label);
    return pinned;
}

EntryFile FilePinner::entry(const std::string& path) {
    if (const int reason = enterDirectoryOf(path)) {
        throwFileError(path, reason);
    }
    return EntryFile(context, path, directory);
}

void FilePinner::see(SeenFile& file) {
    const char* name = nameIn(file.path);
    file.reason = enterDirectoryOf(file.path);
    if (file.reason == 0) {
        file.reason = lookBelow(directory, name, file.status);
    }
    if (file.reason == 0) {
        file.reason = readLabelAt(directory.descriptor.get(), name, context.attribute, file.label);
    }
}

int FilePinner::find(const std::string& path, Pin& pin) {
    const int reason = enterDirectoryOf(path);
    return reason != 0 ? reason : pinEntry(directory, nameIn(path), Remote::kRefuse, pin);
}

int FilePinner::enterDirectoryOf(const std::string& path) {
    const size_t length = path.rfind('/') + 1;
    if (path.compare(0, length, directoryPath) != 0) {
        const std::string wanted = path.substr(0, length);
        directoryPath.clear();
        whyNone = pinPath(wanted, Remote::kRefuse, directory);
        directoryPath = wanted;
    }
    return whyNone;
}
