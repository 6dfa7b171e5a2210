#include "labelmgr/policy/derived_label.h"

#include "common/sm3_hash.h"
#include "labelmgr/model/operation_error.h"

uint64_t digestOf(const std::string& text) {
    constexpr size_t kDigits = 16;
    const std::string digest = getSM3HashValue(text);
    if (digest.size() < kDigits) {
        throw OperationError(text, "no SM3 digest can be computed");
    }
    return std::stoull(digest.substr(digest.size() - kDigits), nullptr, 16);
}

uint64_t packageIdOfName(const std::string& name) {
    return digestOf(name);
}

bool isExecutableFile(mode_t mode) {
    return S_ISREG(mode) && (mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
}

Label initialLabel(const std::string& path, mode_t mode, const PolicyValues& values) {
    Label label;
    label.oid_.pkg_ = values.package;
    label.oid_.file_ = S_ISDIR(mode) ? 0 : digestOf(path.substr(path.rfind('/') + 1));
    label.oid_.path_ = digestOf(path);
    if (isExecutableFile(mode)) {
        label.sid_ = label.oid_;
    }
    label.tid_ = values.tid;
    label.inheritFlag_ = values.inheritFlag;
    return label;
}
