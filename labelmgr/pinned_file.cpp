#include "labelmgr/pinned_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

#include "labelmgr/label_attribute_at.h"
#include "labelmgr/operation_error.h"

namespace {

constexpr int kDirectoryFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr size_t kUsualSize = 128;  // more than the largest label

}  // namespace

PinnedFile::PinnedFile(const std::string& canonicalPath)
    : path(canonicalPath), directory(open("/", kDirectoryFlags)), name(".") {
    for (size_t begin = path.find_first_not_of('/'); begin != std::string::npos;) {
        const size_t end = path.find('/', begin);
        if (name != ".") {
            directory = UniqueFd(openat(directory.get(), name.c_str(), kDirectoryFlags));
        }
        if (!directory) {
            throwFileError(path, errno);
        }
        name = path.substr(begin, end - begin);
        begin = path.find_first_not_of('/', end);
    }
}

mode_t PinnedFile::mode() const {
    struct stat status {};
    if (fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        throwFileError(path, errno);
    }
    return status.st_mode;
}

LabelBytes PinnedFile::label() const {
    std::vector<unsigned char> bytes(kUsualSize);
    ssize_t size = getLabelAt(directory.get(), name.c_str(), bytes.data(), bytes.size());
    while (size < 0 && errno == ERANGE) {
        bytes.resize(bytes.size() * 2);
        size = getLabelAt(directory.get(), name.c_str(), bytes.data(), bytes.size());
    }
    if (size < 0) {
        if (errno == ENODATA) {
            return std::nullopt;
        }
        throwFileError(path, errno);
    }
    bytes.resize(static_cast<size_t>(size));
    return bytes;
}

void PinnedFile::setLabel(const LabelBytes& bytes) const {
    const int result = bytes ? setLabelAt(directory.get(), name.c_str(), bytes->data(), bytes->size())
                             : removeLabelAt(directory.get(), name.c_str());
    if (result != 0 && (bytes || errno != ENODATA)) {
        throwFileError(path, errno);
    }
}
