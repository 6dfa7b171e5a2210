#include <limits>
#include <map>
#include <string>
#include <vector>

#include "base/handles.h"
#include "cli/label_manager.h"
#include "common/wildcard.h"
#include "labelmgr/change/session.h"
#include "labelmgr/files/canonical_path.h"
#include "labelmgr/files/pattern_files.h"
#include "labelmgr/files/pinned_file.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/policy/label_deriver.h"
#include "labelmgr/port/port_support.h"
#include "labelmgr/port/process_context.h"

// The identifiers that the items of policies stand for. "subject_pkg", "object_pkg": a
// package's id, installed or not. "subject_file", "object_file": the OID of a path,
// existing or not, or of each existing match of a pattern. "subject_recurfile",
// "object_recurfile": the same, and of everything below a directory. An unknown kind and
// an unsafe pattern are failures.

namespace {

using PolicyTexts = std::map<std::string, std::vector<std::string>>;
using PolicyIds = std::map<std::string, std::map<std::string, std::vector<ZORV_ID>>>;

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
    const GlobResult found(item, GLOB_TILDE | GLOB_NOSORT);
    if (found.status != 0 && found.status != GLOB_NOMATCH) {
        throw OperationError(item, "its matches cannot be found");
    }
    std::vector<std::string> paths;
    for (size_t i = 0; i < found.matches.gl_pathc; ++i) {
        paths.push_back(canonicalPathOfRecord(found.matches.gl_pathv[i]));
    }
    return paths;
}

class OidFinder {
 public:
    OidFinder(const Context& in, Store* storeIfAny) : context(in), facts(in), deriver(storeIfAny, facts) {
        facts.expectFiles(std::numeric_limits<size_t>::max());
    }

    ZORV_ID package(const std::string& name) { return {deriver.packageId(name), 0, 0}; }

    void addFile(const std::string& path, std::vector<ZORV_ID>& ids) {
        FieldValue oid;
        try {
            oid = deriver.value(Field::kOid, path, PinnedFile(context, path).mode());
        } catch (const FileGone&) {
            oid = initialLabel(path, S_IFREG, {deriver.packageOf(path)}).oid_;
        }
        const ValueNumbers numbers = numbersOf(oid);
        ids.push_back({numbers[0], numbers[1], numbers[2]});
    }

 private:
    const Context& context;
    Facts facts;
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
            const FoundFiles found = filesBelow(path);
            if (found.unreadable != 0) {
                throw OperationError(path, "not all of it can be read");
            }
            for (const SeenFile& below : found.files) {
                finder.addFile(below.path, ids);
            }
        }
    }
    return ids;
}

PolicyIds idsOfAll(const Context& context, const PolicyTexts& policies) {
    std::optional<Store> store = openToRead(context);
    OidFinder finder(context, store ? &*store : nullptr);
    PolicyIds result;
    for (const auto& [kindName, items] : policies) {
        const Kind kind = kindOf(kindName);
        for (const std::string& item : items) {
            result[kindName][item] = idsOf(finder, kind, item);
        }
    }
    return result;
}

}  // namespace

int policies_parse(const PolicyTexts& policies, PolicyIds& result) {
    return statusOf(__func__, [&] {
        result = idsOfAll(processContext(), policies);
        return 0;
    });
}
