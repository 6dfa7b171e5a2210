#include "labelmgr/derived_label.h"

#include <cerrno>
#include <sys/stat.h>

#include "common/sm3_hash.h"
#include "labelmgr/operation_error.h"

namespace {

constexpr size_t kFilesWorthAllOwners = 4;

bool isExecutable(const struct stat& status) {
    return S_ISREG(status.st_mode) && (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
}

struct stat statusOf(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            throw FileGone(path, std::strerror(errno));
        }
        throw systemError(path);
    }
    return status;
}

}  // namespace

uint64_t packageIdOfName(const std::string& name) {
    return getSM3HashLast64Bits(name);
}

uint64_t packageIdOf(Store& store, const std::string& name) {
    const std::optional<uint64_t> set = store.packageId(name);
    return set ? *set : packageIdOfName(name);
}

FieldValue LabelDeriver::value(Field field, const std::string& path) {
    const std::optional<UserValue> set = store.userValue({field, false, path});
    return set ? set->value : byPolicy(field, path);
}

FieldValue LabelDeriver::byPolicy(Field field, const std::string& path) {
    const struct stat status = statusOf(path);
    if (field == Field::kTid || field == Field::kInheritFlag) {
        if (!policy) {
            policy = Policy::load();
        }
        return {field == Field::kTid ? policy->tid(path) : policy->inheritFlag(path), 0, 0};
    }
    if (field == Field::kSid && !isExecutable(status)) {
        return {};
    }
    const std::string owner = ownerOf(path);
    const std::string name = path.substr(path.rfind('/') + 1);
    return {owner.empty() ? 0 : packageIdOf(store, owner),
            S_ISDIR(status.st_mode) ? 0 : getSM3HashLast64Bits(name), getSM3HashLast64Bits(path)};
}

std::string LabelDeriver::ownerOf(const std::string& path) {
    if (fileCount < kFilesWorthAllOwners) {
        return packageOwning(path);
    }
    if (!owners) {
        owners = PackageOwners::load();
    }
    return owners->owner(path);
}
