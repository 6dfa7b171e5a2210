#include "tests/support/manager.h"

#include <sys/mount.h>

#include "base/handles.h"
#include "cli/label_manager.h"
#include "tests/support/temporary_tree.h"

uint32_t tidOf(const std::string& path) {
    uint32_t tid = 0;
    return getFileTid(path.c_str(), &tid) == 0 ? tid : 0xdead;
}

std::string nextMessage(void* subscriber) {
    char* text = nullptr;
    const int status = recvLabelChangeMsg(subscriber, &text);
    const MallocOwner<char> message(text);
    return status == 0 ? message.get() : "failed";
}

void shell(const std::string& script) {
    require(std::system(script.c_str()) == 0, script);
}

SmallDisk::SmallDisk(const std::string& where, const std::string& mkfsOptions) : mountPoint(where) {
    shell("PATH=/usr/sbin:/usr/bin:/sbin:/bin; image=" + where + ".image; exec 2>&1; mkdir -p " + where +
          " && truncate -s 4M $image && mkfs.ext4 -q -F " + mkfsOptions + " $image && mount -o loop $image " +
          where + " && chmod 700 " + where + " && rm $image");
}

SmallDisk::~SmallDisk() {
    umount2(mountPoint.c_str(), MNT_DETACH);
}
