#include "labelmgr/files/canonical_path.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/port/process_context.h"
#include "labelmgr/scan/labelled_packages.h"
#include "labelmgr/scan/scan.h"
#include "state/commands.h"
#include "state/output.h"

namespace {

// Nothing when the whole system has never been labelled.
std::optional<Status> labelPackages(const Context& context, const Options& options) {
    const std::optional<LabelledAnew> done = labelNewPackages(context);
    if (!done) {
        return std::nullopt;
    }
    const Json record = {{"packages", done->packages}, {"files", done->files}, {"failed", done->failed}};
    printRecord(options,
                std::to_string(done->packages) + " packages came since the last labelling, files: " +
                    std::to_string(done->files) + ", failed: " + std::to_string(done->failed),
                record);
    return done->failed != 0 ? Status::kFailed : done->packages != 0 ? Status::kDifferent : Status::kDone;
}

Status labelTree(const Context& context, const Options& options, const std::string& root) {
    const unsigned long failed = labelWholeTree(context, root, {}, scanThreads());
    Json record;
    addName(record, "root", root);
    record["failed"] = failed;
    printRecord(options, asOneLine(root) + " labelled, failed: " + std::to_string(failed), record);
    return failed != 0 ? Status::kFailed : Status::kDifferent;
}

// The worse of two.
Status both(Status left, Status right) {
    return left == Status::kFailed || right == Status::kDone ? left : right;
}

}  // namespace

Status runLabel(const Options& options) {
    const Context context = processContext();
    if (options.isForNewPackages) {
        if (!options.operands.empty()) {
            throw OperationError("--new-packages", "takes no ROOT");
        }
        return labelPackages(context, options).value_or(Status::kDone);
    }
    if (options.operands.empty()) {
        throw OperationError("label", "needs a ROOT, or --new-packages");
    }
    Status status = Status::kDone;
    for (const std::string& operand : options.operands) {
        const std::string root = canonicalPath(operand.c_str(), Remote::kAllow);
        const bool mayBeDone = options.isIfNeeded && root == "/";
        const std::optional<Status> done = mayBeDone ? labelPackages(context, options) : std::nullopt;
        status = both(status, done ? *done : labelTree(context, options, root));
    }
    return status;
}
