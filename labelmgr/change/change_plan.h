#pragma once

#include <map>
#include <string>
#include <vector>

#include "labelmgr/change/change.h"
#include "labelmgr/change/label_writer.h"
#include "labelmgr/files/pattern_files.h"
#include "labelmgr/policy/label_deriver.h"

// What the steps of a change do to files: which labels it replaces by which, and what is
// told.
struct ChangePlan {
    ChangedFiles files;  // whose labels are to be written, or of which something is told
    bool writesLabels = false;
    std::vector<std::string> packageMessages;
    std::string lastValue;  // as a message tells it
    size_t failed = 0;      // files that are left out, each one line in the log
    // Files whose labels are right already and may not be on disk: some of each file
    // system.
    std::vector<std::string> rightFiles;
};

// Works it out, by the records as they are in the store after the steps. Throws
// OperationError.
ChangePlan planFiles(Store& store, const Context& context, const std::vector<ChangeStep>& steps);

// Adds what is told of a file.
void addMessages(const ChangedFile& file, std::vector<std::string>& messages);

// The files that a target stands for; one that it names itself is not looked at.
FoundFiles filesOf(const Context& context, const Target& target);
