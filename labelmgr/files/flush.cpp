#include "labelmgr/files/flush.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "labelmgr/model/operation_error.h"

void WrittenFileSystems::add(dev_t device, int descriptor, const std::string& path) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto [entry, isNew] = fileSystems.try_emplace(device);
    if (!isNew) {
        return;
    }
    entry->second = {UniqueFd(fcntl(descriptor, F_DUPFD_CLOEXEC, 0)), path};
    if (!entry->second.descriptor) {
        const int reason = errno;
        fileSystems.erase(entry);
        throw systemError(path, reason);
    }
}

bool WrittenFileSystems::has(dev_t device) {
    const std::lock_guard<std::mutex> lock(mutex);
    return fileSystems.count(device) != 0;
}

void WrittenFileSystems::clear() {
    const std::lock_guard<std::mutex> lock(mutex);
    fileSystems.clear();
}

void WrittenFileSystems::flush() {
    for (const auto& [device, fileSystem] : fileSystems) {
        if (syncfs(fileSystem.descriptor.get()) != 0) {
            throw OperationError(fileSystem.path,
                                 std::string("the label is not on disk: ") + std::strerror(errno));
        }
    }
    fileSystems.clear();
}
