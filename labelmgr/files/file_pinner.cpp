#include "labelmgr/files/file_pinner.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

#include "base/attribute_at.h"
#include "labelmgr/model/operation_error.h"

namespace {

constexpr size_t kMostOpen = 8;

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
    return EntryFile(context, path, directory());
}

void FilePinner::see(SeenFile& file) {
    const char* name = nameIn(file.path);
    file.reason = enterDirectoryOf(file.path);
    if (file.reason == 0) {
        file.reason = lookBelow(directory(), name, file.status);
    }
    if (file.reason == 0) {
        file.reason = readLabelAt(directory().descriptor.get(), name, context.attribute, file.label);
    }
}

int FilePinner::find(const std::string& path, Pin& pin) {
    const int reason = enterDirectoryOf(path);
    return reason != 0 ? reason : pinEntry(directory(), nameIn(path), Remote::kRefuse, pin);
}

int FilePinner::enterDirectoryOf(const std::string& path) {
    const size_t length = path.rfind('/') + 1;
    if (!way.empty() && path.compare(0, length, directoryPath) == 0) {
        return whyNone;
    }
    const std::string wanted = path.substr(0, length);
    while (!way.empty() && wanted.compare(0, way.back().length, directoryPath, 0, way.back().length) != 0) {
        way.pop_back();
    }
    directoryPath.clear();
    if (way.empty()) {
        way.push_back({0, pinRoot()});
    }
    whyNone = 0;
    for (size_t begin = 0; (begin = wanted.find_first_not_of('/', way.back().length)) != std::string::npos;) {
        const size_t end = wanted.find('/', begin);
        Directory next{end + 1, {}};
        whyNone = pinEntry(directory(), wanted.substr(begin, end - begin).c_str(), Remote::kRefuse, next.pin);
        if (whyNone != 0) {
            break;
        }
        if (way.size() == kMostOpen) {
            way.erase(way.begin());
        }
        way.push_back(std::move(next));
    }
    directoryPath = wanted;
    return whyNone;
}
