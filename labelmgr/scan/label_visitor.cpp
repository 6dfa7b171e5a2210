#include "labelmgr/scan/label_visitor.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>

#include "base/attribute_at.h"
#include "labelmgr/files/label_bytes.h"
#include "labelmgr/files/mount_table.h"
#include "labelmgr/model/operation_error.h"
#include "log/logger.h"

namespace {

constexpr size_t kLargestLabel = 81;
// Whoever owns part of a tree could otherwise wash out the log.
constexpr unsigned long kMostErrorLines = 1000;

const LabelSnapshot::Directory& rulesOf(const WalkState& state) {
    return static_cast<const LabelSnapshot::Directory&>(state);
}

}  // namespace

std::shared_ptr<const WalkState> SnapshotVisitor::enter(const std::string& path,
                                                        const std::shared_ptr<const WalkState>& parent) {
    const auto rules = std::static_pointer_cast<const LabelSnapshot::Directory>(parent);
    return snapshot.isExcluded(*rules, path) ? nullptr : snapshot.below(rules, path);
}

void SnapshotVisitor::visit(const WalkEntry& entry, const WalkState& state) {
    const bool isDirectoryItself = *entry.name == '\0';
    if (isDirectoryItself || !snapshot.isExcluded(rulesOf(state), entry.path)) {
        visitLabelled(entry, snapshot.label(rulesOf(state), entry.path, entry.status.mode));
    }
}

void LabelVisitor::fail(const std::string& path, int reason) {
    const unsigned long number = ++counts.failed;
    if (number <= kMostErrorLines) {
        ZORV_LOG(error, "%s: %s", asOneLine(path).c_str(), std::strerror(reason));
    } else if (number == kMostErrorLines + 1) {
        ZORV_LOG(error, "more files fail; the summary has their number");
    }
}

void LabelVisitor::visitLabelled(const WalkEntry& entry, const Label& label) {
    const std::string wanted = encodeLabel(label);
    std::array<char, kLargestLabel> present{};
    const char* attribute = context.attribute.c_str();
    const ssize_t got =
        getAttributeAt(entry.directory, entry.name, attribute, present.data(), present.size());
    if (got >= 0 && wanted == std::string_view(present.data(), static_cast<size_t>(got))) {
        ++counts.unchanged;
        if (isAllFlushed) {
            noteWritten(entry);
        }
    } else if ((got < 0 && errno != ENODATA && errno != ERANGE) ||
               setAttributeAt(entry.directory, entry.name, attribute, wanted.data(), wanted.size()) != 0) {
        failUnlessGone(entry, errno);
    } else {
        ++counts.labelled;
        noteWritten(entry);
    }
}

void LabelVisitor::noteWritten(const WalkEntry& entry) {
    if (lastWritten.exchange(entry.status.device) == entry.status.device ||
        written.has(entry.status.device)) {
        return;
    }
    EntryStatus directory;
    UniqueFd mounted;
    const bool isMounted =
        lookAt(entry.directory, "", directory) != 0 || directory.device != entry.status.device;
    if (isMounted && S_ISREG(entry.status.mode)) {
        mounted =
            UniqueFd(openat(entry.directory, entry.name, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    }
    written.add(entry.status.device, mounted ? mounted.get() : entry.directory, entry.path);
}

void LabelVisitor::failUnlessGone(const WalkEntry& entry, int reason) {
    if (reason == ENOTSUP) {
        warnOfFileSystem(entry, "the file system has no attributes for labels");
    } else if (reason == EROFS && !isRootReadOnly) {
        warnOfFileSystem(entry, "it lies on a read-only mount");
    } else if (reason != ENOENT) {
        fail(entry.path, reason);
    }
}

void LabelVisitor::warnOfFileSystem(const WalkEntry& entry, const char* what) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (leftAlone.insert(entry.status.device).second) {
        ZORV_LOG(warn, "%s: %s and is left alone", asOneLine(entry.path).c_str(), what);
    }
}
