#include "state/new_file.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "labelmgr/model/operation_error.h"

namespace {

constexpr size_t kBufferSize = 65536;

std::string resolved(const std::string& path) {
    struct stat status {};
    const bool isThere = stat(path.c_str(), &status) == 0;
    if (!isThere && errno != ENOENT) {
        throw systemError(path);
    }
    if (isThere && !S_ISREG(status.st_mode)) {
        throw OperationError(path, "not a regular file");
    }
    std::filesystem::path target = std::filesystem::absolute(path);
    const std::filesystem::path name = isThere ? "" : target.filename();
    std::error_code failure;
    target = std::filesystem::canonical(isThere ? target : target.parent_path(), failure);
    if (failure) {
        throw systemError(path, failure.value());
    }
    return isThere ? target : target / name;
}

}  // namespace

NewFile::NewFile(const std::string& pathToTake)
    : path(resolved(pathToTake)),
      temporary(path + ".XXXXXX"),
      descriptor(mkostemp(temporary.data(), O_CLOEXEC)) {
    if (!descriptor) {
        throw systemError(temporary);
    }
}

NewFile::~NewFile() {
    if (!temporary.empty()) {
        unlink(temporary.c_str());
    }
}

void NewFile::write(std::string_view bytes) {
    buffer.append(bytes);
    while (buffer.size() >= kBufferSize || (bytes.empty() && !buffer.empty())) {
        const ssize_t written = ::write(descriptor.get(), buffer.data(), buffer.size());
        if (written < 0) {
            throw systemError(temporary);
        }
        buffer.erase(0, static_cast<size_t>(written));
    }
}

void NewFile::commit() {
    write({});
    const UniqueFd directory(
        open(path.substr(0, path.rfind('/') + 1).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory || fsync(descriptor.get()) != 0 || rename(temporary.c_str(), path.c_str()) != 0) {
        throw systemError(path);
    }
    temporary.clear();
    if (fsync(directory.get()) != 0) {
        throw systemError(path);
    }
}
