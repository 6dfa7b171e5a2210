#include "labelmgr/files/pattern_files.h"

#include <sys/stat.h>

#include "common/wildcard.h"
#include "labelmgr/files/pinned_file.h"
#include "labelmgr/files/tree_walk.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/model/pattern_rules.h"

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
            matches.push_back(entry.path);
        }
    }

    // What cannot be read may hold matches: run() throws the first of these at its end.
    void fail(const std::string& path, int reason) override { throw systemError(path, reason); }

    std::vector<std::string> matches;

 private:
    PatternRule<bool> rule;
};

std::vector<std::string> collect(const std::string& root, const std::string& pattern) {
    MatchCollector collector(pattern);
    try {
        if (S_ISDIR(pinPath(root).status.mode)) {
            TreeWalk(collector, 1).run(TreeWalk::openRoot(root), root, std::make_shared<WalkState>());
        }
    } catch (const FileGone&) {
        collector.matches.clear();  // no directory, no files
    }
    return collector.matches;
}

}  // namespace

std::vector<std::string> filesMatching(const std::string& pattern) {
    return collect(getParentDirWithoutWildcard(pattern), pattern);
}

std::vector<std::string> filesBelow(const std::string& directory) {
    return collect(directory, directory.back() == '/' ? directory + "?*" : directory + "/?*");
}
