#include "labelmgr/files/pattern_files.h"

#include <cerrno>
#include <cstring>
#include <mutex>
#include <sys/stat.h>
#include <utility>

#include "common/wildcard.h"
#include "labelmgr/files/in_threads.h"
#include "labelmgr/files/pinned_file.h"
#include "labelmgr/files/tree_walk.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/model/pattern_rules.h"
#include "log/logger.h"

namespace {

class MatchCollector : public TreeVisitor {
 public:
    // Without an attribute no labels are read.
    MatchCollector(const std::string& pattern, const std::string* labelAttribute)
        : rule{pattern, true}, attribute(labelAttribute) {}

    std::shared_ptr<const WalkState> enter(const std::string& path,
                                           const std::shared_ptr<const WalkState>& parent) override {
        return rule.canMatchFrom(path + "/") ? parent : nullptr;
    }

    void visit(const WalkEntry& entry, const WalkState& /*state*/) override {
        if (!matchesPattern(rule.pattern, entry.path)) {
            return;
        }
        SeenFile file{entry.path, entry.status, std::nullopt};
        if (attribute != nullptr) {
            file.reason = readLabelAt(entry.directory, entry.name, *attribute, file.label);
        }
        const std::lock_guard<std::mutex> lock(mutex);
        found.files.push_back(std::move(file));
    }

    void fail(const std::string& path, int reason) override {
        if (reason != ENAMETOOLONG) {
            throw systemError(path, reason);
        }
        ZORV_LOG(error, "%s: %s", asOneLine(path).c_str(), std::strerror(reason));
        const std::lock_guard<std::mutex> lock(mutex);
        ++found.unreadable;
    }

    FoundFiles found;

 private:
    PatternRule<bool> rule;
    const std::string* attribute;
    std::mutex mutex;  // of what has been found
};

FoundFiles collect(const std::string& root, const std::string& pattern, const std::string* attribute) {
    MatchCollector collector(pattern, attribute);
    try {
        if (S_ISDIR(pinPath(root).status.mode)) {
            TreeWalk(collector, usefulThreads())
                .run(TreeWalk::openRoot(root), root, std::make_shared<WalkState>());
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

FoundFiles filesMatching(const Context& context, const std::string& pattern) {
    return collect(getParentDirWithoutWildcard(pattern), pattern, &context.attribute);
}

FoundFiles filesBelow(const std::string& directory) {
    return collect(directory, directory.back() == '/' ? directory + "?*" : directory + "/?*", nullptr);
}
