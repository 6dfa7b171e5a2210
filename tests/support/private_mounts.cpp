#include "tests/support/private_mounts.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sched.h>
#include <string>
#include <sys/mount.h>

namespace {

void require(bool done, const char* what) {
    if (!done) {
        std::perror(what);
        std::fputs("tests: run them as root: they need a mount namespace of their own\n", stderr);
        std::exit(1);
    }
}

}  // namespace

void enterPrivateMounts() {
    require(unshare(CLONE_NEWNS) == 0, "tests: unshare");
    require(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "tests: private mounts");
    require(mount("tests", "/var/log", "tmpfs", 0, "mode=755") == 0, "tests: mount /var/log");
    require(std::system("cp -a /etc /var/log/etc && mount --bind /var/log/etc /etc") == 0,
            "tests: mount /etc");
    std::filesystem::create_directory("/var/log/zorv");
    std::filesystem::create_directory(kScratchDirectory);
    const std::string scratch = kScratchDirectory;
    setenv("ZORV_LABEL_STATE_DIR", (scratch + "/state").c_str(), 1);
    setenv("ZORV_LABEL_POLICY_FILE", (scratch + "/policy.conf").c_str(), 1);
}
