#include <fcntl.h>
#include <unistd.h>

#include "labelmgr/model/operation_error.h"
#include "labelmgr/policy/policy_file.h"
#include "labelmgr/port/process_context.h"
#include "state/commands.h"
#include "state/output.h"
#include "state/policy_findings.h"

Status runCheckPolicy(const Options& options) {
    const bool isDraft = !options.operands.empty();
    const std::string path = isDraft ? options.operands.front() : processContext().policyFile;
    const UniqueFd file = isDraft ? UniqueFd(open(path.c_str(), O_RDONLY | O_CLOEXEC)) : openPolicy(path);
    if (isDraft && !file) {
        throw systemError(path);
    }
    const std::vector<PolicyLine> lines = policyLines(policyText(file, path));
    const std::vector<PolicyFinding> findings = findingsOf(lines);
    for (const PolicyFinding& finding : findings) {
        Json record;
        addName(record, "file", path);
        record["line"] = finding.line;
        addName(record, "finding", finding.text);
        printRecord(options, asOneLine(path) + ":" + std::to_string(finding.line) + ": " + finding.text,
                    record);
    }
    return findings.empty() ? Status::kDone : Status::kDifferent;
}
