#include "labelmgr/pinned_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "labelmgr/operation_error.h"

namespace {

constexpr int kFlags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
constexpr size_t kUsualSize = 128;  // more than the largest label

}  // namespace

UniqueFd pinPath(const std::string& path) {
    UniqueFd file(open("/", kFlags));
    for (size_t begin = path.find_first_not_of('/'); begin != std::string::npos && file;) {
        const size_t end = path.find('/', begin);
        const std::string component = path.substr(begin, end - begin);
        file = UniqueFd(openat(file.get(), component.c_str(), kFlags));
        begin = path.find_first_not_of('/', end);
    }
    if (!file) {
        throwFileError(path, errno);
    }
    return file;
}

PinnedFile::PinnedFile(const std::string& canonicalPath)
    : path(canonicalPath), file(pinPath(path)), nameInProc("/proc/self/fd/" + std::to_string(file.get())) {}

mode_t PinnedFile::mode() const {
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        throw systemError(path);
    }
    return status.st_mode;
}

LabelBytes PinnedFile::label() const {
    std::vector<unsigned char> bytes(kUsualSize);
    ssize_t size = getxattr(nameInProc.c_str(), kLabelAttribute, bytes.data(), bytes.size());
    while (size < 0 && errno == ERANGE) {
        bytes.resize(bytes.size() * 2);
        size = getxattr(nameInProc.c_str(), kLabelAttribute, bytes.data(), bytes.size());
    }
    if (size < 0) {
        if (errno == ENODATA) {
            return std::nullopt;
        }
        throw systemError(path);
    }
    bytes.resize(static_cast<size_t>(size));
    return bytes;
}

void PinnedFile::setLabel(const LabelBytes& bytes) const {
    const int result = bytes ? setxattr(nameInProc.c_str(), kLabelAttribute, bytes->data(), bytes->size(), 0)
                             : removexattr(nameInProc.c_str(), kLabelAttribute);
    if (result != 0 && (bytes || errno != ENODATA)) {
        throw systemError(path);
    }
}
