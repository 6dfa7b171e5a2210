#include "tests/support/private_mounts.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sched.h>
#include <string>
#include <sys/mount.h>

namespace {

constexpr const char* kEtcLayer = "/var/log/etc";

void require(bool done, const char* what) {
    if (!done) {
        std::perror(what);
        std::fputs("tests: run them as root: they need a mount namespace of their own\n", stderr);
        std::exit(1);
    }
}

bool overlayEtc() {
    const std::string layer = kEtcLayer;
    const std::string options = "lowerdir=/etc,upperdir=" + layer + "/upper,workdir=" + layer + "/work";
    std::filesystem::create_directories(layer + "/upper");
    std::filesystem::create_directories(layer + "/work");
    return mount("overlay", "/etc", "overlay", 0, options.c_str()) == 0;
}

bool copyEtc() {
    const std::string copy = std::string(kEtcLayer) + "/copy";
    return std::system(("cp -a /etc " + copy).c_str()) == 0 &&
           mount(copy.c_str(), "/etc", nullptr, MS_BIND, nullptr) == 0;
}

}  // namespace

void enterPrivateMounts() {
    require(unshare(CLONE_NEWNS) == 0, "tests: unshare");
    require(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "tests: private mounts");
    require(mount("tests", "/var/log", "tmpfs", 0, "mode=755") == 0, "tests: mount /var/log");
    require(overlayEtc() || copyEtc(), "tests: mount /etc");
    std::filesystem::create_directory("/var/log/zorv");
    std::filesystem::create_directory(kScratchDirectory);
    const std::string scratch = kScratchDirectory;
    setenv("ZORV_LABEL_STATE_DIR", (scratch + "/state").c_str(), 1);
    setenv("ZORV_LABEL_POLICY_FILE", (scratch + "/policy.conf").c_str(), 1);
}
