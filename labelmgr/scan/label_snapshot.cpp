#include "labelmgr/scan/label_snapshot.h"

#include <algorithm>

namespace {

std::string_view nameOf(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

LabelSnapshot::LabelSnapshot(Facts& facts, const std::string& root,
                             const std::vector<std::string>& skippedPaths)
    : skipped(skippedPaths.begin(), skippedPaths.end()),
      policy(facts.policy()),
      owners(facts.owners()),
      besideRoot(owners.in(root.substr(0, std::max<size_t>(root.rfind('/'), 1)))) {
    digestOf(root);  // without digests nothing could be labelled
}

void LabelSnapshot::readUserValues(Store& store) {
    for (const Field field : kFields) {
        userPatterns[field] = store.userValues().patterns(field);
        for (const auto& [target, value] : store.userValues().all(field)) {
            if (!target.isPattern) {
                userPaths[target.text][field] = value.value;
            }
        }
    }
    for (const PackageId& package : store.packageIds().all()) {
        packageIds.emplace(package.name, package.id);
    }
}

std::shared_ptr<const LabelSnapshot::Directory> LabelSnapshot::wholeSystem() const {
    auto directory = std::make_shared<Directory>();
    directory->names = besideRoot;
    for (const Field field : kFields) {
        directory->userPatterns[field] = allOf(userPatterns[field]);
    }
    directory->tids = allOf(policy.tids);
    directory->inheritFlags = allOf(policy.inheritFlags);
    directory->excluded = allOf(policy.excluded);
    return directory;
}

std::shared_ptr<const LabelSnapshot::Directory> LabelSnapshot::below(
    const std::shared_ptr<const Directory>& parent, const std::string& path) const {
    const std::string prefix = path.back() == '/' ? path : path + "/";
    auto directory = std::make_shared<Directory>();
    directory->path = path;
    directory->owner = parent->names.ownerOf(nameOf(path));
    directory->names = owners.in(path);
    for (const Field field : kFields) {
        directory->userPatterns[field] = candidatesFrom(parent->userPatterns[field], prefix);
    }
    directory->tids = candidatesFrom(parent->tids, prefix);
    directory->inheritFlags = candidatesFrom(parent->inheritFlags, prefix);
    directory->excluded = candidatesFrom(parent->excluded, prefix);
    return directory;
}

bool LabelSnapshot::isExcluded(const Directory& directory, const std::string& path) const {
    return firstMatch(directory.excluded, path) != nullptr || (!skipped.empty() && skipped.count(path) != 0);
}

bool LabelSnapshot::isLeftAlone(const std::string& path) const {
    const auto rules = wholeSystem();
    return firstOfPathAndAbove(path, [&](const std::string& above) { return isExcluded(*rules, above); });
}

Label LabelSnapshot::label(const Directory& directory, const std::string& path, mode_t mode) const {
    static const PathValues kNothingSet;
    const auto found = userPaths.find(path);
    const PathValues& exact = found != userPaths.end() ? found->second : kNothingSet;
    return derivedLabel(path, mode, policyValues(directory, path), [&](Field field) {
        return userSetValue(exact[field], directory.userPatterns[field], path);
    });
}

PolicyValues LabelSnapshot::policyValues(const Directory& directory, const std::string& path) const {
    const std::string_view owner =
        path == directory.path ? directory.owner : directory.names.ownerOf(nameOf(path));
    return {packageOf(owner), matchedNumber(directory.tids, path),
            matchedNumber(directory.inheritFlags, path)};
}

uint64_t LabelSnapshot::packageOf(std::string_view ownerName) const {
    if (ownerName.empty()) {
        return 0;
    }
    const std::string owner(ownerName);
    const auto set = packageIds.find(owner);
    return set != packageIds.end() ? set->second : packageIdOfName(owner);
}
