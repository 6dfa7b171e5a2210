#include "tests/support/manager.h"

#include <filesystem>
#include <regex>
#include <sys/mount.h>

#include "base/handles.h"
#include "cli/label_manager.h"
#include "common/sm3_hash.h"
#include "tests/support/temporary_tree.h"

std::string stateDirectory() {
    return std::getenv("ZORV_LABEL_STATE_DIR");
}

std::string listedTids() {
    UserSetRecord* records = nullptr;
    const int count = showUserSetFileTid(&records);
    std::string list = count < 0 ? "failed" : "";
    for (int i = 0; i < count; ++i) {
        list +=
            (i > 0 ? " " : "") + std::string(records[i].path) + "=" + std::to_string(records[i].values[0]);
    }
    std::free(records);
    return list;
}

NothingSet::NothingSet() {
    std::filesystem::remove_all(stateDirectory());
}

NothingSet::~NothingSet() {
    std::filesystem::remove_all(stateDirectory());
    std::filesystem::remove(std::getenv("ZORV_LABEL_POLICY_FILE"));
}

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

std::string messagesSoFar(void* subscriber) {
    const std::string mark = "package set_id mark 0000000000000001";
    std::string all = setPkgId("mark", 1) == 0 && delUserSetPkgId("mark") == 0 ? "" : "failed";
    while (!all.ends_with(mark) && !all.ends_with("failed")) {
        all += '\n' + nextMessage(subscriber);
    }
    nextMessage(subscriber);  // that the mark was deleted
    return all.substr(0, all.size() - mark.size());
}

std::string withDigests(std::string text) {
    for (std::smatch match; std::regex_search(text, match, std::regex("SM3\\(([^)]*)\\)"));) {
        text = match.prefix().str() + getSM3HashValue(match[1]).substr(48) + match.suffix().str();
    }
    return text;
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
