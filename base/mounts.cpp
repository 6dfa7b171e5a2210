#include "base/mounts.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "base/whole_file.h"

namespace {

constexpr std::string_view kPseudo[] = {
    "autofs",     "binder",    "binfmt_misc", "bpf",      "cgroup",     "cgroup2", "configfs",
    "cpuset",     "debugfs",   "devpts",      "efivarfs", "functionfs", "fusectl", "hugetlbfs",
    "mqueue",     "nfsd",      "nsfs",        "proc",     "pstore",     "resctrl", "rpc_pipefs",
    "securityfs", "selinuxfs", "smackfs",     "sysfs",    "tracefs",    "xenfs",
};

constexpr std::string_view kRemote[] = {
    "9p",   "afs",    "beegfs", "ceph", "cifs", "coda",  "fuse", "fuseblk", "gfs2",
    "gpfs", "lustre", "ncpfs",  "nfs",  "nfs4", "ocfs2", "smb3", "smbfs",   "virtiofs",
};

template <size_t Count>
bool isOneOf(const std::string_view (&types)[Count], std::string_view type) {
    return std::find(std::begin(types), std::end(types), type) != std::end(types);
}

}  // namespace

FileSystemKind kindOfFileSystem(std::string_view type) {
    const std::string_view family = type.substr(0, type.find('.'));  // "fuse.name" is FUSE
    if (isOneOf(kPseudo, family)) {
        return FileSystemKind::kPseudo;
    }
    return isOneOf(kRemote, family) ? FileSystemKind::kRemote : FileSystemKind::kLocal;
}

// "36 35 98:0 /root /mount-point options optional-fields - type source options", with
// blanks in names escaped.
std::map<dev_t, FileSystemKind> parseMounts(const std::string& mountinfo) {
    std::map<dev_t, FileSystemKind> kinds;
    std::istringstream lines(mountinfo);
    for (std::string line; std::getline(lines, line);) {
        const size_t separator = line.find(" - ");
        std::istringstream head(line.substr(0, separator));
        std::string id;
        unsigned int major = 0;
        unsigned int minor = 0;
        char colon = 0;
        if (separator == std::string::npos || !(head >> id >> id >> major >> colon >> minor) ||
            colon != ':') {
            continue;
        }
        const std::string_view tail = std::string_view(line).substr(separator + 3);
        kinds[makedev(major, minor)] = kindOfFileSystem(tail.substr(0, tail.find(' ')));
    }
    return kinds;
}

bool MountTable::isCurrent() const {
    pollfd changes{list.get(), POLLPRI, 0};
    return list && poll(&changes, 1, 0) == 0;
}

std::optional<FileSystemKind> MountTable::kindOf(dev_t device) {
    if (!isCurrent()) {
        list = UniqueFd(open(kPath, O_RDONLY | O_CLOEXEC));
        if (!list) {
            return std::nullopt;
        }
        const std::optional<std::string> text = wholeFile(list.get());
        if (!text || text->empty()) {
            list.reset();
            return std::nullopt;
        }
        kinds = parseMounts(*text);
    }
    const auto found = kinds.find(device);
    return found != kinds.end() ? found->second : FileSystemKind::kLocal;
}

int lookAt(int directory, const char* name, EntryStatus& status) {
    constexpr int kFlags = AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
    struct statx answer {};
    constexpr unsigned int kAsked = STATX_TYPE | STATX_MODE | STATX_INO | STATX_NLINK | STATX_MNT_ID;
    if (statx(directory, name, kFlags, kAsked, &answer) != 0) {
        return errno;
    }
    status = {makedev(answer.stx_dev_major, answer.stx_dev_minor), answer.stx_ino, answer.stx_mode,
              answer.stx_nlink, (answer.stx_mask & STATX_MNT_ID) != 0 ? answer.stx_mnt_id : 0};
    return 0;
}
