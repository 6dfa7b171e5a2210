#include "label/label_xattr.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <vector>

#include "base/attribute_at.h"
#include "label/label.h"
#include "label/label_error.h"
#include "log/logger.h"

namespace {

// Follows links even for callers that do not: a dangling link counts as a missing file.
int lookAtTarget(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? 0 : errno;
}

void requireExists(const std::string& path, int failure) {
    if (failure == ENOENT || failure == ENOTDIR) {
        throw LabelError("File does not exist: ", 4);
    }
    if (failure != 0) {
        throw std::filesystem::filesystem_error("status", path,
                                                std::error_code(failure, std::generic_category()));
    }
}

ssize_t readAttribute(const LabelledFile& file, void* buffer, size_t size) {
    if (file.directory != AT_FDCWD) {
        return getAttributeAt(file.directory, file.name, kLabelAttribute, buffer, size);
    }
    return file.noDereference ? lgetxattr(file.name, kLabelAttribute, buffer, size)
                              : getxattr(file.name, kLabelAttribute, buffer, size);
}

}  // namespace

int getFromXattr(Label& label, const LabelledFile& file) {
    try {
        requireExists(file.path, file.failure);
        const ssize_t probed = readAttribute(file, nullptr, 0);
        if (probed < 0) {
            const int reason = errno;
            if (reason == ENODATA) {
                ZORV_LOG(debug, "Extended attribute not found: %s", file.path.c_str());
            } else {
                ZORV_LOG(debug, "Failed to get extended attribute size: %s", std::strerror(reason));
            }
            return -1;
        }
        if (probed == 0) {
            throw LabelError(std::string("Extended attribute is empty: ") + kLabelAttribute, 6);
        }
        std::vector<unsigned char> value(static_cast<size_t>(probed));
        const ssize_t got = readAttribute(file, value.data(), value.size());
        if (got < 0) {
            const int reason = errno;
            throw LabelError(std::string("Failed to read extended attribute: ") + std::strerror(reason), 5);
        }
        if (got != probed) {
            throw LabelError("Size mismatch when reading extended attribute", 5);
        }
        label.deserializeFromBuffer(value.data(), value.size());
        return 0;
    } catch (const LabelError& failure) {
        ZORV_LOG(error, "LabelError: %s: %s", failure.what(), file.path.c_str());
    } catch (const std::exception& failure) {
        ZORV_LOG(error, "exception: %s: %s", failure.what(), file.path.c_str());
    }
    return -1;
}

int Label::getFromXattr(const std::string& path, const bool& noDereference) {
    return ::getFromXattr(*this, {AT_FDCWD, path.c_str(), noDereference, path, lookAtTarget(path)});
}

int Label::setToXattr(const std::string& path, const bool& noDereference) const {
    try {
        requireExists(path, lookAtTarget(path));
        std::vector<unsigned char> value(serializedBufferSize());
        const unsigned long used = serializeToBuffer(value.data(), value.size());
        if (used == 0) {
            throw LabelError("Label serialization resulted in zero bytes: ", 12);
        }
        if (used > value.size()) {
            throw LabelError("Label serialization used more space than expected: ", 12);
        }
        const auto write = noDereference ? lsetxattr : setxattr;
        const int result = write(path.c_str(), kLabelAttribute, value.data(), used, 0);
        const int reason = errno;
        ZORV_LOG(debug, "%s: %d, path: %s", noDereference ? "lsetxattr" : "setxattr", result, path.c_str());
        if (result != 0) {
            if (reason == ENOTSUP) {
                throw LabelError("Filesystem does not support extended attributes: ", 7);
            }
            throw LabelError(std::string("Failed to set extended attribute: ") + std::strerror(reason), 5);
        }
        return result;
    } catch (const LabelError& failure) {
        ZORV_LOG(error, "LabelError: %s: %s", failure.what(), path.c_str());
        return -1;
    } catch (const std::exception& failure) {
        ZORV_LOG(error, "exception: %s: %s", failure.what(), path.c_str());
        return -2;
    }
}
