#include "labelmgr/file_labels.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <sys/xattr.h>

#include "common/posix_handles.h"
#include "label/label_error.h"
#include "labelmgr/operation_error.h"

namespace {

constexpr const char* kAttributeName = "security.zorv";

}  // namespace

std::string canonicalPath(const char* path) {
    const UniqueText resolved(realpath(path, nullptr));
    if (!resolved) {
        throwFileError(path, errno);
    }
    return resolved.get();
}

std::string canonicalPathOfRecord(const char* path) {
    try {
        return canonicalPath(path);
    } catch (const FileGone&) {
        std::error_code failure;
        const std::filesystem::path resolved = std::filesystem::weakly_canonical(path, failure);
        if (failure) {
            throw;
        }
        return resolved;
    }
}

LabelBytes readLabelBytes(const std::string& path) {
    std::vector<unsigned char> bytes(256);
    ssize_t size = lgetxattr(path.c_str(), kAttributeName, bytes.data(), bytes.size());
    while (size < 0 && errno == ERANGE) {
        bytes.resize(bytes.size() * 2);
        size = lgetxattr(path.c_str(), kAttributeName, bytes.data(), bytes.size());
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

void writeLabelBytes(const std::string& path, const LabelBytes& bytes) {
    const int result = bytes ? lsetxattr(path.c_str(), kAttributeName, bytes->data(), bytes->size(), 0)
                             : lremovexattr(path.c_str(), kAttributeName);
    if (result != 0 && (bytes || errno != ENODATA)) {
        throwFileError(path, errno);
    }
}

Label decodeLabel(const std::string& path, const std::vector<unsigned char>& bytes) {
    try {
        Label label;
        return label.deserializeFromBuffer(bytes.data(), bytes.size());
    } catch (const LabelError& failure) {
        throw OperationError(path, failure.what());
    }
}

std::vector<unsigned char> encodeLabel(const Label& label) {
    std::vector<unsigned char> bytes(label.serializedBufferSize());
    label.serializeToBuffer(bytes.data(), bytes.size());
    return bytes;
}
