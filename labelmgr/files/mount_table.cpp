#include "labelmgr/files/mount_table.h"

#include "labelmgr/model/operation_error.h"

FileSystemKind kindOfDevice(dev_t device) {
    const std::optional<FileSystemKind> kind = MountTable().kindOf(device);
    if (!kind) {
        throw systemError(MountTable::kPath);
    }
    return *kind;
}
