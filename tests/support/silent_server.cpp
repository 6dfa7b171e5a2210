#include "tests/support/silent_server.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/temporary_tree.h"

SilentServer::SilentServer(std::string where)
    : mountPoint(std::move(where)), device(open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
    struct stat status {};
    require(device && stat(mountPoint.c_str(), &status) == 0, mountPoint);
    std::array<char, 80> options{};
    std::snprintf(options.data(), options.size(), "fd=%d,rootmode=%o,user_id=0,group_id=0,allow_other",
                  device.get(), status.st_mode & S_IFMT);
    require(mount("silent", mountPoint.c_str(), "fuse", MS_NOSUID | MS_NODEV, options.data()) == 0, "mount");
    std::array<char, 65536> request{};
    require(read(device.get(), request.data(), request.size()) > 0, "request");
    struct {
        fuse_out_header header;
        fuse_init_out init;
    } answer{};
    answer.header = {sizeof(answer), 0, reinterpret_cast<fuse_in_header*>(request.data())->unique};
    answer.init.major = FUSE_KERNEL_VERSION;
    answer.init.minor = FUSE_KERNEL_MINOR_VERSION;
    answer.init.max_write = 4096;
    require(write(device.get(), &answer, sizeof(answer)) == sizeof(answer), "answer");
}

SilentServer::~SilentServer() {
    device.reset();
    umount2(mountPoint.c_str(), MNT_DETACH);
}
