#include <cstdio>

#include "labelmgr/files/canonical_path.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/port/process_context.h"
#include "labelmgr/scan/labelled_packages.h"
#include "labelmgr/scan/scan.h"
#include "log/logger.h"
#include "state/commands.h"
#include "state/output.h"

namespace {

void tellFailures(unsigned long failed) {
    if (failed != 0) {
        std::fprintf(stderr, "zorv-label-state: %lu files could not be labelled; the log says why\n", failed);
    }
}

// Nothing when the whole system is to be labelled first.
std::optional<Status> labelPackages(const Context& context, const Options& options, bool mayHaveFailed) {
    const std::optional<LabelledAnew> done = labelNewPackages(context);
    if (!done || (done->hadFailures && !mayHaveFailed)) {
        return std::nullopt;
    }
    const Json record = {{"packages", done->packages}, {"files", done->files}, {"failed", done->failed}};
    printRecord(options,
                std::to_string(done->packages) + " packages came since the last labelling, files: " +
                    std::to_string(done->files) + ", failed: " + std::to_string(done->failed),
                record);
    tellFailures(done->failed);
    return done->failed != 0 ? Status::kFailed : done->packages != 0 ? Status::kDifferent : Status::kDone;
}

Status labelTree(const Context& context, const Options& options, const std::string& root) {
    const unsigned long failed = labelWholeTree(context, root, {}, scanThreads());
    Json record;
    addName(record, "root", root);
    record["failed"] = failed;
    printRecord(options, asOneLine(root) + " labelled, failed: " + std::to_string(failed), record);
    tellFailures(failed);
    return failed != 0 ? Status::kFailed : Status::kDifferent;
}

// What keeps one root from being labelled does not keep the others.
Status labelOperand(const Context& context, const Options& options, const std::string& operand) {
    try {
        const std::string root = canonicalPath(operand.c_str(), Remote::kAllow);
        const bool mayBeDone = options.isIfNeeded && root == "/";
        const std::optional<Status> done = mayBeDone ? labelPackages(context, options, false) : std::nullopt;
        return done ? *done : labelTree(context, options, root);
    } catch (const OperationError& failure) {
        std::fprintf(stderr, "zorv-label-state: %s\n", failure.what());
        ZORV_LOG(error, "%s", failure.what());
        return Status::kFailed;
    }
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
        return labelPackages(context, options, true).value_or(Status::kDone);
    }
    if (options.operands.empty()) {
        throw OperationError("label", "needs a ROOT, or --new-packages");
    }
    Status status = Status::kDone;
    for (const std::string& operand : options.operands) {
        status = both(status, labelOperand(context, options, operand));
    }
    return status;
}
