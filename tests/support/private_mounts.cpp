#include "tests/support/private_mounts.h"

#include <cstdlib>
#include <filesystem>
#include <sched.h>
#include <string>
#include <sys/mount.h>

#include "tests/support/temporary_tree.h"

void enterPrivateMounts() {
    require(unshare(CLONE_NEWNS) == 0, "a mount namespace, which only root can make");
    require(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
    require(mount("tests", "/var/log", "tmpfs", 0, "mode=755") == 0, "mount /var/log");
    require(std::system("cp -a /etc /var/log/etc && mount --bind /var/log/etc /etc") == 0, "mount /etc");
    std::filesystem::create_directory("/var/log/zorv");
    std::filesystem::create_directory(kScratchDirectory);
    const std::string scratch = kScratchDirectory;
    setenv("ZORV_LABEL_STATE_DIR", (scratch + "/state").c_str(), 1);
    setenv("ZORV_LABEL_POLICY_FILE", (scratch + "/policy.conf").c_str(), 1);
}
