#include "labelmgr/file_labels.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "base/handles.h"
#include "label/label_error.h"
#include "labelmgr/operation_error.h"

std::string canonicalPath(const char* path) {
    const MallocOwner<char> resolved(realpath(path, nullptr));
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
        const std::filesystem::path resolved =
            std::filesystem::weakly_canonical(std::filesystem::absolute(path, failure), failure);
        if (failure) {
            throw;
        }
        return resolved;
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
