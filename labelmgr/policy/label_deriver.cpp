#include "labelmgr/policy/label_deriver.h"

namespace {

constexpr size_t kManyFiles = 100;

}  // namespace

void LabelDeriver::expectFiles(size_t count) {
    expectsManyFiles = count >= kManyFiles;
    facts.expectFiles(count);
}

FieldValue LabelDeriver::value(Field field, const std::string& path, mode_t mode) {
    if (const std::optional<FieldValue> set = userValue(field, path)) {
        return *set;
    }
    switch (field) {
        case Field::kTid:
            return facts.policy().tid(path);
        case Field::kInheritFlag:
            return facts.policy().inheritFlag(path);
        case Field::kSid:
            if (!isExecutableFile(mode)) {  // spares the question to the package database
                return Id();
            }
            break;
        case Field::kOid:
            break;
    }
    return fieldOf(initialLabel(path, mode, {packageOf(path)}), field);
}

Label LabelDeriver::label(const std::string& path, mode_t mode, UserValues userValues) {
    const Policy& policy = facts.policy();
    const PolicyValues values{packageOf(path), policy.tid(path), policy.inheritFlag(path)};
    return derivedLabel(path, mode, values, [&](Field field) {
        return userValues == UserValues::kObserve ? userValue(field, path) : std::nullopt;
    });
}

uint64_t LabelDeriver::packageOf(const std::string& path) {
    const std::string owner = facts.ownerOf(path);
    return owner.empty() ? 0 : packageId(owner);
}

uint64_t LabelDeriver::packageId(const std::string& name) {
    const std::optional<uint64_t> set = store != nullptr ? store->packageIds().find(name) : std::nullopt;
    return set ? *set : packageIdOfName(name);
}

std::optional<FieldValue> LabelDeriver::userValue(Field field, const std::string& path) {
    if (store == nullptr) {
        return std::nullopt;
    }
    std::optional<PatternRules<FieldValue>>& rules = patterns[field];
    if (!rules) {
        rules = store->userValues().patterns(field);
    }
    return userSetValue(exactValue(field, path), *rules, path);
}

std::optional<FieldValue> LabelDeriver::exactValue(Field field, const std::string& path) {
    if (!expectsManyFiles) {
        const std::optional<UserValue> found = store->userValues().find({field, false, path});
        return found ? std::optional(found->value) : std::nullopt;
    }
    std::optional<ValuesByPath>& values = paths[field];
    if (!values) {
        values.emplace();
        for (const UserRecord& record : store->userValues().all(field)) {
            if (!record.target.isPattern) {
                values->emplace(record.target.text, record.value.value);
            }
        }
    }
    const auto found = values->find(path);
    return found != values->end() ? std::optional(found->second) : std::nullopt;
}
