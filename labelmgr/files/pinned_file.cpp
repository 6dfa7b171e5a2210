#include "labelmgr/files/pinned_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "labelmgr/model/operation_error.h"

namespace {

constexpr int kFlags = O_PATH | O_NOFOLLOW | O_CLOEXEC;

bool isRemoteBelow(const Pin& directory, const EntryStatus& entry) {
    return entry.device != directory.status.device && kindOfDevice(entry.device) == FileSystemKind::kRemote;
}

}  // namespace

Pin pinRoot() {
    Pin pin{UniqueFd(open("/", kFlags)), {}};
    const int reason = pin.descriptor ? lookAt(pin.descriptor.get(), "", pin.status) : errno;
    if (reason != 0) {
        throw systemError("/", reason);
    }
    return pin;
}

int lookBelow(const Pin& directory, const char* name, EntryStatus& status) {
    const int reason = lookAt(directory.descriptor.get(), name, status);
    return reason == 0 && isRemoteBelow(directory, status) ? EREMOTE : reason;
}

int pinEntry(const Pin& directory, const char* name, Remote remote, Pin& entry) {
    entry.descriptor = UniqueFd(openat(directory.descriptor.get(), name, kFlags));
    const int reason = entry.descriptor ? lookAt(entry.descriptor.get(), "", entry.status) : errno;
    const bool isRefused = reason == 0 && remote == Remote::kRefuse && isRemoteBelow(directory, entry.status);
    return isRefused ? EREMOTE : reason;
}

Pin pinPath(const std::string& path, Remote remote) {
    Pin pin = pinRoot();
    for (size_t begin = path.find_first_not_of('/'); begin != std::string::npos;) {
        const size_t end = path.find('/', begin);
        Pin entry;
        if (const int reason = pinEntry(pin, path.substr(begin, end - begin).c_str(), remote, entry)) {
            throwFileError(path, reason);
        }
        pin = std::move(entry);
        begin = path.find_first_not_of('/', end);
    }
    return pin;
}

bool isOnReadOnlyFileSystem(int descriptor) {
    struct statvfs fileSystem {};
    return fstatvfs(descriptor, &fileSystem) == 0 && (fileSystem.f_flag & ST_RDONLY) != 0;
}

PinnedFile::PinnedFile(const Context& context, std::string canonicalPath, Pin pinned)
    : name(std::move(canonicalPath)),
      attribute(context.attribute),
      pin(std::move(pinned)),
      nameInProc("/proc/self/fd/" + std::to_string(pin.descriptor.get())) {}

LabelBytes PinnedFile::label() const {
    LabelBytes label;
    if (const int reason = readLabel(label)) {
        fail(reason);
    }
    return label;
}

int PinnedFile::readLabel(LabelBytes& label) const {
    const auto get = [&](char* buffer, size_t size) {
        return getxattr(nameInProc.c_str(), attribute.c_str(), buffer, size);
    };
    const int reason = readLabelBy(get, label);
    if (reason == ENOENT) {  // of an open file
        fail(reason);
    }
    return reason;
}

void PinnedFile::setLabel(const LabelBytes& bytes) const {
    const int result = bytes
                           ? setxattr(nameInProc.c_str(), attribute.c_str(), bytes->data(), bytes->size(), 0)
                           : removexattr(nameInProc.c_str(), attribute.c_str());
    if (result != 0 && (bytes || errno != ENODATA)) {
        fail(errno);
    }
}

PinnedFile::Flushable PinnedFile::openToFlush() const {
    if (S_ISREG(mode()) || S_ISDIR(mode())) {
        Flushable flushable{UniqueFd(open(nameInProc.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)), true};
        if (flushable.descriptor) {
            return flushable;
        }
    }
    const std::string parent = name.substr(0, name.rfind('/') + 1);
    Flushable flushable{UniqueFd(openat(pinPath(parent).descriptor.get(), ".",
                                        O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)),
                        false};
    if (!flushable.descriptor) {
        fail(errno);
    }
    return flushable;
}

void PinnedFile::fail(int reason) const {
    if (reason == ENOENT && access("/proc/self/fd", F_OK) != 0) {
        throw OperationError(name, "its label is reached through /proc, which is not mounted");
    }
    if (reason == ENOENT) {  // of an open file
        throw systemError(name, reason);
    }
    throwLabelError(name, reason);
}
