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
constexpr size_t kUsualSize = 128;  // more than the largest label

}  // namespace

Pin pinRoot() {
    Pin pin{UniqueFd(open("/", kFlags)), {}};
    const int reason = pin.descriptor ? lookAt(pin.descriptor.get(), "", pin.status) : errno;
    if (reason != 0) {
        throw systemError("/", reason);
    }
    return pin;
}

Pin pinEntry(const Pin& directory, const char* name, const std::string& path, Remote remote) {
    Pin pin{UniqueFd(openat(directory.descriptor.get(), name, kFlags)), {}};
    const int reason = pin.descriptor ? lookAt(pin.descriptor.get(), "", pin.status) : errno;
    if (reason != 0) {
        throwFileError(path, reason);
    }
    if (remote == Remote::kRefuse && pin.status.device != directory.status.device &&
        kindOfDevice(pin.status.device) == FileSystemKind::kRemote) {
        throw FileRefuses(path, "refused: on a network or FUSE file system, which may never answer");
    }
    return pin;
}

Pin pinPath(const std::string& path, Remote remote) {
    Pin pin = pinRoot();
    for (size_t begin = path.find_first_not_of('/'); begin != std::string::npos;) {
        const size_t end = path.find('/', begin);
        pin = pinEntry(pin, path.substr(begin, end - begin).c_str(), path, remote);
        begin = path.find_first_not_of('/', end);
    }
    return pin;
}

PinnedFile::PinnedFile(const Context& context, std::string canonicalPath, Pin pinned)
    : name(std::move(canonicalPath)),
      attribute(context.attribute),
      pin(std::move(pinned)),
      nameInProc("/proc/self/fd/" + std::to_string(pin.descriptor.get())) {}

bool PinnedFile::isOnReadOnlyFileSystem() const {
    struct statvfs fileSystem {};
    return fstatvfs(pin.descriptor.get(), &fileSystem) == 0 && (fileSystem.f_flag & ST_RDONLY) != 0;
}

LabelBytes PinnedFile::label() const {
    std::string bytes(kUsualSize, '\0');
    ssize_t size = getxattr(nameInProc.c_str(), attribute.c_str(), bytes.data(), bytes.size());
    while (size < 0 && errno == ERANGE) {
        bytes.resize(bytes.size() * 2);
        size = getxattr(nameInProc.c_str(), attribute.c_str(), bytes.data(), bytes.size());
    }
    if (size < 0) {
        if (errno == ENODATA) {
            return std::nullopt;
        }
        fail(errno);
    }
    bytes.resize(static_cast<size_t>(size));
    return bytes;
}

void PinnedFile::setLabel(const LabelBytes& bytes) const {
    const int result = bytes
                           ? setxattr(nameInProc.c_str(), attribute.c_str(), bytes->data(), bytes->size(), 0)
                           : removexattr(nameInProc.c_str(), attribute.c_str());
    if (result != 0 && (errno == ENOSPC || errno == EDQUOT)) {  // of the file, or of its owner
        throw FileRefuses(name, std::strerror(errno));
    }
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
    throwFileError(name, reason);
}

PinnedFile FilePinner::pin(const std::string& path) {
    const size_t last = path.rfind('/') + 1;
    if (last == path.size()) {  // the root
        return PinnedFile(context, path);
    }
    const std::string parent = path.substr(0, last);
    if (parent != directoryPath) {
        directory = pinPath(parent);
        directoryPath = parent;
    }
    return PinnedFile(context, path, pinEntry(directory, path.c_str() + last, path, Remote::kRefuse));
}
