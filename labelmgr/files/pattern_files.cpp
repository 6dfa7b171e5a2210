#include "labelmgr/files/pattern_files.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <utility>

#include "common/wildcard.h"
#include "labelmgr/files/pinned_file.h"
#include "labelmgr/files/tree_walk.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/model/pattern_rules.h"
#include "log/logger.h"

namespace {

class MatchCollector : public TreeVisitor {
 public:
    explicit MatchCollector(const std::string& pattern) : rule{pattern, true} {}

    std::shared_ptr<const WalkState> enter(const std::string& path,
                                           const std::shared_ptr<const WalkState>& parent) override {
        return rule.canMatchFrom(path + "/") ? parent : nullptr;
    }

    void visit(const WalkEntry& entry, const WalkState& /*state*/) override {
        if (matchesPattern(rule.pattern, entry.path)) {
            found.paths.push_back(entry.path);
        }
    }

    void fail(const std::string& path, int reason) override {
        if (reason != ENAMETOOLONG) {
            throw systemError(path, reason);
        }
        ZORV_LOG(error, "%s: %s", asOneLine(path).c_str(), std::strerror(reason));
        ++found.unreadable;
    }

    FoundFiles found;

 private:
    PatternRule<bool> rule;
};

FoundFiles collect(const std::string& root, const std::string& pattern) {
    MatchCollector collector(pattern);
    try {
        if (S_ISDIR(pinPath(root).status.mode)) {
            TreeWalk(collector, 1).run(TreeWalk::openRoot(root), root, std::make_shared<WalkState>());
        }
    } catch (const FileGone&) {
        return {};  // no directory, no files
    } catch (const FileRefuses& failure) {
        ZORV_LOG(error, "%s", failure.what());
        ++collector.found.unreadable;
    }
    return std::move(collector.found);
}

}  // namespace

FoundFiles filesMatching(const std::string& pattern) {
    return collect(getParentDirWithoutWildcard(pattern), pattern);
}

FoundFiles filesBelow(const std::string& directory) {
    return collect(directory, directory.back() == '/' ? directory + "?*" : directory + "/?*");
}
