#include <algorithm>
#include <cerrno>
#include <fstream>
#include <string_view>
#include <sys/stat.h>
#include <sys/utsname.h>

#include "cli/label_manager.h"
#include "common/sm3_hash.h"
#include "labelmgr/files/canonical_path.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/policy/derived_label.h"
#include "labelmgr/port/port_support.h"

// The port's look-ups of modules and devices.

namespace {

std::string normalized(std::string_view module) {
    std::string name(module);
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

// "kernel/fs/ext4/ext4.ko.xz: kernel/lib/crc16.ko" names ext4.
std::string_view moduleOfLine(std::string_view line) {
    const std::string_view path = line.substr(0, line.find(':'));
    const std::string_view file = path.substr(path.rfind('/') + 1);
    return file.substr(0, file.find(".ko"));
}

bool isListed(const std::string& module) {
    utsname kernel{};
    uname(&kernel);
    for (const char* list : {"modules.dep", "modules.builtin"}) {
        std::ifstream file(std::string("/lib/modules/") + kernel.release + "/" + list);
        for (std::string line; std::getline(file, line);) {
            if (normalized(moduleOfLine(line)) == module) {
                return true;
            }
        }
    }
    return false;
}

bool isLoaded(const std::string& module) {
    struct stat status {};
    return stat(("/sys/module/" + module).c_str(), &status) == 0;
}

// A module of the running kernel, loaded or not; "-" and "_" are the same.
uint64_t kernelModuleOid(const std::string& name) {
    const std::string module = normalized(name);
    const bool isName = !module.empty() && module.front() != '.' && module.find('/') == std::string::npos;
    if (!isName || (!isLoaded(module) && !isListed(module))) {
        throw OperationError(name, "no such kernel module");
    }
    return getKmodNameHash(module.data(), static_cast<uint32_t>(module.size()));
}

// A device node, by its path or its name in /dev.
uint64_t deviceOid(const std::string& name) {
    const std::string path = canonicalPath((name.rfind('/', 0) == 0 ? name : "/dev/" + name).c_str());
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        throw systemError(path);
    }
    if (!S_ISCHR(status.st_mode) && !S_ISBLK(status.st_mode)) {
        throw OperationError(path, "not a device");
    }
    return digestOf(path);
}

int lookUp(const char* operation, const char* name, uint64_t* oid, uint64_t (*oidOf)(const std::string&)) {
    return statusOf(operation, [&] {
        *oid = oidOf(name);
        return 0;
    });
}

}  // namespace

int getKernelModuleOid(const char* name, uint64_t* oid) {
    return lookUp(__func__, name, oid, kernelModuleOid);
}

int getDeviceOid(const char* name, uint64_t* oid) {
    return lookUp(__func__, name, oid, deviceOid);
}
