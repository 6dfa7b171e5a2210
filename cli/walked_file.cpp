#include "cli/walked_file.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

#include "cli/command_options.h"

ReachedFile::ReachedFile(const WalkedFile& walked, Target required)
    : place{AT_FDCWD, walked.path.c_str(), noDereference, walked.path, 0} {
    struct stat status {};
    if (walked.directory != nullptr) {
        reachEntry(walked, required);
    } else if (required == Target::kMustExist && stat(walked.path.c_str(), &status) != 0) {
        place.failure = errno;
    }
}

void ReachedFile::reachEntry(const WalkedFile& walked, Target required) {
    const WalkedDirectory& directory = *walked.directory;
    place.directory = directory.descriptor;
    place.name = walked.name;
    if (*walked.name == '\0') {
        return;
    }
    EntryStatus status;
    place.failure =
        walked.path.size() < PATH_MAX
            ? directory.fileSystems.look(directory.descriptor, directory.device, walked.name, status)
            : ENAMETOOLONG;
    if (place.failure == 0 && S_ISLNK(status.mode) && !(noDereference && required == Target::kAny)) {
        reachTarget(walked);
    }
}

void ReachedFile::reachTarget(const WalkedFile& walked) {
    const WalkedDirectory& directory = *walked.directory;
    place.failure =
        openLinkTarget(directory.fileSystems, directory.descriptor, directory.device, walked.name, target);
    if (!noDereference) {
        std::snprintf(targetInProc.data(), targetInProc.size(), "/proc/self/fd/%d", target.get());
        place.directory = AT_FDCWD;
        place.name = targetInProc.data();
    } else if (place.failure == EREMOTE) {  // a target that cannot be asked for is as good as one
        place.failure = 0;
    }
}
