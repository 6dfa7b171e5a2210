#include "labelmgr/policy_items.h"

#include "common/wildcard.h"
#include "labelmgr/derived_label.h"
#include "labelmgr/file_labels.h"
#include "labelmgr/operation_error.h"
#include "labelmgr/pattern_files.h"
#include "labelmgr/user_values.h"

namespace {

enum class Kind { kPackage, kFile, kFileRecursively };

Kind kindOf(const std::string& name) {
    static const std::map<std::string, Kind> kKinds = {
        {"subject_pkg", Kind::kPackage},
        {"object_pkg", Kind::kPackage},
        {"subject_file", Kind::kFile},
        {"object_file", Kind::kFile},
        {"subject_recurfile", Kind::kFileRecursively},
        {"object_recurfile", Kind::kFileRecursively},
    };
    const auto kind = kKinds.find(name);
    if (kind == kKinds.end()) {
        throw OperationError(name, "not a kind of policy");
    }
    return kind->second;
}

// A path that is not there stands for itself.
std::vector<std::string> pathsOf(const std::string& item) {
    if (item.empty()) {
        throw OperationError("policy item", "empty");
    }
    if (!containsWildcard(item)) {
        return {canonicalPathOfRecord(item.c_str())};
    }
    if (!isPatternSafe(item)) {
        throw OperationError(item, "not a safe pattern");
    }
    std::vector<std::string> paths;
    for (const std::string& match : searchFilesByPattern(item)) {
        paths.push_back(canonicalPathOfRecord(match.c_str()));
    }
    return paths;
}

class OidFinder {
 public:
    explicit OidFinder(Store* storeIfAny) : store(storeIfAny), deriver(storeIfAny, OwnerLookup::kAllAtOnce) {}

    ZORV_ID package(const std::string& name) const { return {packageIdOf(store, name), 0, 0}; }

    void addFile(const std::string& path, std::vector<ZORV_ID>& ids) {
        try {
            ids.push_back(deriver.value(Field::kOid, path));
        } catch (const FileGone&) {
            ids.push_back(fieldOf(initialLabel(path, S_IFREG, {deriver.packageOf(path)}), Field::kOid));
        }
    }

 private:
    Store* store;
    LabelDeriver deriver;
};

std::vector<ZORV_ID> idsOf(OidFinder& finder, Kind kind, const std::string& item) {
    if (kind == Kind::kPackage) {
        return {finder.package(item)};
    }
    std::vector<ZORV_ID> ids;
    for (const std::string& path : pathsOf(item)) {
        finder.addFile(path, ids);
        if (kind == Kind::kFileRecursively) {
            for (const std::string& below : filesBelow(path)) {
                finder.addFile(below, ids);
            }
        }
    }
    return ids;
}

}  // namespace

PolicyIds parsePolicies(const PolicyTexts& policies) {
    std::optional<Store> store = readUserValues();
    OidFinder finder(store ? &*store : nullptr);
    PolicyIds result;
    for (const auto& [kindName, items] : policies) {
        const Kind kind = kindOf(kindName);
        for (const std::string& item : items) {
            result[kindName][item] = idsOf(finder, kind, item);
        }
    }
    return result;
}
