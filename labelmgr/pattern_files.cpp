#include "labelmgr/pattern_files.h"

#include <cerrno>
#include <sys/stat.h>

#include "common/wildcard.h"
#include "labelmgr/operation_error.h"
#include "labelmgr/pattern_rules.h"
#include "labelmgr/tree_walk.h"

namespace {

class MatchCollector : public TreeVisitor {
 public:
    explicit MatchCollector(const std::string& pattern) : rule{pattern, true} {}

    std::shared_ptr<const WalkState> enter(const std::string& path,
                                           const std::shared_ptr<const WalkState>& parent) override {
        return rule.canMatchFrom(path + "/") ? parent : nullptr;
    }

    bool visit(const WalkEntry& entry, const WalkState& /*state*/) override {
        collect(entry.path);
        return false;
    }

    // What cannot be read may hold matches: run() throws the first of these at its end.
    void fail(const std::string& path, int reason) override { throw systemError(path, reason); }

    std::vector<std::string> matches;

 private:
    void collect(const std::string& path) {
        if (matchesPattern(rule.pattern, path)) {
            matches.push_back(path);
        }
    }

    PatternRule<bool> rule;
};

std::vector<std::string> collect(const std::string& root, const std::string& pattern) {
    MatchCollector collector(pattern);
    struct stat status {};
    if (lstat(root.c_str(), &status) != 0) {
        if (errno != ENOENT && errno != ENOTDIR) {
            throw systemError(root);
        }
    } else if (S_ISDIR(status.st_mode)) {
        TreeWalk(collector, 1).run(TreeWalk::openRoot(root), root, std::make_shared<WalkState>());
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
