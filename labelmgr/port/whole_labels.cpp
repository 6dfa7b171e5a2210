#include "cli/label_manager.h"
#include "labelmgr/change/user_values.h"
#include "labelmgr/files/canonical_path.h"
#include "labelmgr/port/port_support.h"
#include "labelmgr/port/process_context.h"
#include "labelmgr/scan/scan.h"

// The port's operations on whole labels: of one file, and of all files below a root.

namespace {

std::string labelTextOf(const char* operation, const std::string& path, ChangeKind kind) {
    std::string text;
    statusOf(operation, [&] {
        text = deriveLabel(processContext(), canonicalPath(path.c_str()), kind);
        return 0;
    });
    return text;
}

}  // namespace

std::string restoreSingleFileLabel(const std::string& path) {
    return labelTextOf(__func__, path, ChangeKind::kRestore);
}

std::string restoreSingleFileInitLabel(const std::string& path) {
    return labelTextOf(__func__, path, ChangeKind::kInitialise);
}

int addTagFullSystem(const char* root, const std::vector<std::string>& skip) {
    return statusOf(__func__, [&] {
        std::vector<std::string> skipped;
        skipped.reserve(skip.size());
        for (const std::string& path : skip) {
            skipped.push_back(canonicalPathOfRecord(path.c_str()));
        }
        const std::string canonicalRoot = canonicalPath(root, Remote::kAllow);
        return labelWholeTree(processContext(), canonicalRoot, skipped, scanThreads()) == 0 ? 0 : kFailed;
    });
}

int getLabelSetStatus() {
    return statusOf(__func__, [] { return wholeTreeStatus(processContext()); });
}
