#include "labelmgr/derived_label.h"

#include "common/sm3_hash.h"
#include "labelmgr/operation_error.h"
#include "labelmgr/pinned_file.h"

namespace {

constexpr size_t kFilesWorthAllOwners = 4;

bool isExecutableFile(mode_t mode) {
    return S_ISREG(mode) && (mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
}

}  // namespace

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

uint64_t packageIdOf(Store* store, const std::string& name) {
    const std::optional<uint64_t> set = store != nullptr ? store->packageId(name) : std::nullopt;
    return set ? *set : packageIdOfName(name);
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

OwnerLookup ownersFor(size_t files) {
    return files < kFilesWorthAllOwners ? OwnerLookup::kOneByOne : OwnerLookup::kAllAtOnce;
}

FieldValue LabelDeriver::value(Field field, const std::string& path) {
    const std::optional<FieldValue> set = userValue(field, path);
    return set ? *set : byPolicy(field, path);
}

Label LabelDeriver::label(const std::string& path, UserValues userValues) {
    const PolicyValues values{packageOf(path), currentPolicy().tid(path), currentPolicy().inheritFlag(path)};
    return derivedLabel(path, PinnedFile(path).mode(), values, [&](Field field) {
        return userValues == UserValues::kObserve ? userValue(field, path) : std::nullopt;
    });
}

std::optional<FieldValue> LabelDeriver::userValue(Field field, const std::string& path) {
    if (store == nullptr) {
        return std::nullopt;
    }
    auto& rules = patterns.at(static_cast<size_t>(field));
    if (!rules) {
        rules = store->userPatterns(field);
    }
    const std::optional<UserValue> exact = store->userValue({field, false, path});
    return userSetValue(exact ? std::optional(exact->value) : std::nullopt, *rules, path);
}

FieldValue LabelDeriver::byPolicy(Field field, const std::string& path) {
    const mode_t mode = PinnedFile(path).mode();
    if (field == Field::kTid || field == Field::kInheritFlag) {
        return {field == Field::kTid ? currentPolicy().tid(path) : currentPolicy().inheritFlag(path), 0, 0};
    }
    if (field == Field::kSid && !isExecutableFile(mode)) {
        return {};
    }
    return fieldOf(initialLabel(path, mode, {packageOf(path)}), field);
}

uint64_t LabelDeriver::packageOf(const std::string& path) {
    if (!owners && ownerLookup == OwnerLookup::kAllAtOnce) {
        owners = PackageOwners::load("/");
    }
    const std::string owner = owners ? owners->owner(path) : packageOwning(path);
    return owner.empty() ? 0 : packageIdOf(store, owner);
}

const Policy& LabelDeriver::currentPolicy() {
    if (!policy) {
        policy = Policy::load();
    }
    return *policy;
}
