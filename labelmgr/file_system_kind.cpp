#include "labelmgr/file_system_kind.h"

#include <algorithm>
#include <iterator>
#include <linux/magic.h>
#include <sys/vfs.h>

namespace {

// Numbers that <linux/magic.h> does not have yet or never had are the file systems' own.
constexpr unsigned int kConfigFs = 0x62656570;
constexpr unsigned int kFuseControl = 0x65735543;
constexpr unsigned int kMessageQueues = 0x19800202;
constexpr unsigned int kRpcPipes = 0x67596969;

constexpr unsigned int kPseudo[] = {
    PROC_SUPER_MAGIC,   SYSFS_MAGIC,          CGROUP_SUPER_MAGIC, CGROUP2_SUPER_MAGIC,
    DEVPTS_SUPER_MAGIC, DEBUGFS_MAGIC,        TRACEFS_MAGIC,      BPF_FS_MAGIC,
    SECURITYFS_MAGIC,   SELINUX_MAGIC,        SMACK_MAGIC,        PSTOREFS_MAGIC,
    EFIVARFS_MAGIC,     BINFMTFS_MAGIC,       NSFS_MAGIC,         AUTOFS_SUPER_MAGIC,
    HUGETLBFS_MAGIC,    RDTGROUP_SUPER_MAGIC, XENFS_SUPER_MAGIC,  kConfigFs,
    kFuseControl,       kMessageQueues,       kRpcPipes,
};

constexpr unsigned int kRemote[] = {
    NFS_SUPER_MAGIC,  CIFS_SUPER_MAGIC, SMB_SUPER_MAGIC, SMB2_SUPER_MAGIC, AFS_SUPER_MAGIC,  AFS_FS_MAGIC,
    CODA_SUPER_MAGIC, NCP_SUPER_MAGIC,  V9FS_MAGIC,      CEPH_SUPER_MAGIC, FUSE_SUPER_MAGIC,
};

}  // namespace

FileSystemKind fileSystemKind(int descriptor) {
    struct statfs status {};
    if (fstatfs(descriptor, &status) != 0) {
        return FileSystemKind::kLocal;  // what is wrong with it shows when it is read
    }
    const auto magic = static_cast<unsigned int>(status.f_type);
    if (std::find(std::begin(kPseudo), std::end(kPseudo), magic) != std::end(kPseudo)) {
        return FileSystemKind::kPseudo;
    }
    return std::find(std::begin(kRemote), std::end(kRemote), magic) != std::end(kRemote)
               ? FileSystemKind::kRemote
               : FileSystemKind::kLocal;
}
