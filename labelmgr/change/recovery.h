#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "labelmgr/change/label_writer.h"
#include "labelmgr/model/context.h"
#include "labelmgr/policy/facts.h"
#include "labelmgr/store/store.h"

// What is done about changes that did not come to their end, and about scans that died.
// The caller holds the store's writers' lock. Failures throw OperationError.

// Whether a process died in the middle of a change or of a scan, or a label of a change
// is still to be put back.
bool hasLeftWork(Store& store);

// Takes back a change that a dead process left: first the labels, and when they are on
// disk the records. A label that cannot be put back now is logged and kept, for the next
// one to try. What was changed during a scan that died is written again, and the scan
// counts as interrupted.
void finishWhatWasLeft(Store& store, const Context& context);

// A change of this process that failed, as it was before and as it was meant to be.
struct FailedChange {
    std::vector<FormerRecord> formerRecords;
    std::vector<FormerPackageId> formerPackages;
    int64_t lastMessage = 0;  // before it
    size_t messages = 0;      // its own
    const ChangedFiles& files;
};

// Takes it back, whether or not its commits came to be seen by others before they failed.
// What cannot be taken back now is logged and stays pending.
void takeBackFailedChange(Store& store, const Context& context, const FailedChange& change);

// Writes the labels that hold now to the files at or below a root that were changed
// during a scan: the scan and a change of one field may each have overwritten what the
// other wrote.
void reapplyChangesDuringScan(Store& store, const Context& context, Facts& facts, const std::string& root);
