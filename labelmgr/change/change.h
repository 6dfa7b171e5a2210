#pragma once

#include <string>
#include <vector>

#include "labelmgr/model/change_kind.h"
#include "labelmgr/model/context.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/store/store.h"

// One change, whole: the records, the labels of all files concerned and the messages, or
// nothing of it, whatever fails and whatever kills the process.
//
// A change is two transactions under the store's writers' lock. The first sets the
// records and, beside them, keeps as pending what is needed to take the change back: the
// records that it replaces and the labels that it is about to replace. Once that is on
// disk the labels are written and brought to the disk. The second transaction sets the
// ids of packages, adds the messages and drops what was pending: with its commit the
// change has happened. Until then it has not: a failure, or the next process to open the
// store, takes it back (see recovery.h).

struct ChangeStep {
    ChangeKind kind = ChangeKind::kSet;
    // A path or a pattern. Of a whole label only the path counts.
    Target target;
    // For kSet.
    FieldValue value;
    // Whether a value can be set on exactly a path only while the file is there.
    bool needsFile = true;
};

// kSet, kDelete or kClear of the id of a package.
struct PackageStep {
    ChangeKind kind = ChangeKind::kSet;
    std::string name;
    uint64_t id = 0;  // for kSet
};

// All was done, but to files of a pattern or a clear that refuse their labels themselves:
// one error line each. The record stays true, since later labellings go by it.
class PartlyDone : public OperationError {
 public:
    using OperationError::OperationError;
};

// Answers the text of the value that the last file was given. Throws PartlyDone, and any
// other OperationError when nothing was changed: the store is as before, and so are the
// labels. A file that is gone is passed over, unless a value is to be set on exactly this
// file and needs it.
std::string carryOut(Store& store, const Context& context, const std::vector<ChangeStep>& steps,
                     const std::vector<PackageStep>& packages = {});

// Set and remove the records and the package ids in the store, and answer what they
// replace. For looking at what a change would do.
std::vector<FormerRecord> changeRecords(Store& store, const std::vector<ChangeStep>& steps);
std::vector<FormerPackageId> changePackageIds(Store& store, const std::vector<PackageStep>& packages);
