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
            return policy().tid(path);
        case Field::kInheritFlag:
            return policy().inheritFlag(path);
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
    const PolicyValues values{packageOf(path), policy().tid(path), policy().inheritFlag(path)};
    return derivedLabel(path, mode, values, [&](Field field) {
        return userValues == UserValues::kObserve ? userValue(field, path) : std::nullopt;
    });
}

const Policy& LabelDeriver::policy() {
    return *oneAtATime([&] { return &facts.policy(); });
}

uint64_t LabelDeriver::packageOf(const std::string& path) {
    const std::string owner = oneAtATime([&] { return facts.ownerOf(path); });
    return owner.empty() ? 0 : packageId(owner);
}

uint64_t LabelDeriver::packageId(const std::string& name) {
    const std::optional<uint64_t> set =
        store != nullptr ? oneAtATime([&] { return store->packageIds().find(name); }) : std::nullopt;
    return set ? *set : packageIdOfName(name);
}

std::optional<FieldValue> LabelDeriver::userValue(Field field, const std::string& path) {
    if (store == nullptr) {
        return std::nullopt;
    }
    const std::optional<FieldValue> exact = exactValue(field, path);
    const PatternRules<FieldValue>& rules = *oneAtATime([&] {
        std::optional<PatternRules<FieldValue>>& read = patterns[field];
        if (!read) {
            read = store->userValues().patterns(field);
        }
        return &*read;
    });
    return userSetValue(exact, rules, path);
}

std::optional<FieldValue> LabelDeriver::exactValue(Field field, const std::string& path) {
    if (!expectsManyFiles) {
        const auto found = oneAtATime([&] { return store->userValues().find({field, false, path}); });
        return found ? std::optional(found->value) : std::nullopt;
    }
    const ValuesByPath& values = *oneAtATime([&] {
        std::optional<ValuesByPath>& read = paths[field];
        if (!read) {
            read = valuesByPath(*store, field);
        }
        return &*read;
    });
    const auto found = values.find(path);
    return found != values.end() ? std::optional(found->second) : std::nullopt;
}

LabelDeriver::ValuesByPath LabelDeriver::valuesByPath(Store& store, Field field) {
    ValuesByPath values;
    for (const UserRecord& record : store.userValues().all(field)) {
        if (!record.target.isPattern) {
            values.emplace(record.target.text, record.value.value);
        }
    }
    return values;
}
