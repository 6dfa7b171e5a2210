#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "labelmgr/files/flush.h"
#include "labelmgr/files/tree_walk.h"
#include "labelmgr/model/context.h"
#include "labelmgr/scan/label_snapshot.h"

// What a scan has done so far.
struct ScanCounts {
    std::atomic<unsigned long> labelled{0};
    std::atomic<unsigned long> unchanged{0};
    std::atomic<unsigned long> failed{0};

    unsigned long done() const { return labelled + unchanged + failed; }
};

// Comes to each file below a root whose label is to be looked at, with the label that it
// should have.
class SnapshotVisitor : public TreeVisitor {
 public:
    explicit SnapshotVisitor(const LabelSnapshot& labels) : snapshot(labels) {}

    std::shared_ptr<const WalkState> enter(const std::string& path,
                                           const std::shared_ptr<const WalkState>& parent) override;
    void visit(const WalkEntry& entry, const WalkState& state) override;

 protected:
    virtual void visitLabelled(const WalkEntry& entry, const Label& label) = 0;

 private:
    const LabelSnapshot& snapshot;
};

// Gives each file that a walk comes to the label that it should have. A label that is
// already right is not written. One bad file is one error line, up to 1,000 of them; a
// file system without attributes, or a read-only one below a root that is not, is one
// warning.
class LabelVisitor : public SnapshotVisitor {
 public:
    // Flushed are the file systems that it writes to, or all that it comes to.
    LabelVisitor(const Context& in, const LabelSnapshot& labels, bool isRootOnReadOnly,
                 ScanCounts& countsOfScan, bool flushesAll)
        : SnapshotVisitor(labels),
          context(in),
          isRootReadOnly(isRootOnReadOnly),
          counts(countsOfScan),
          isAllFlushed(flushesAll) {}

    void fail(const std::string& path, int reason) override;

    // Waits until all labels are on disk. Throws OperationError.
    void flush() { written.flush(); }

 private:
    void visitLabelled(const WalkEntry& entry, const Label& label) override;
    void noteWritten(const WalkEntry& entry);
    void failUnlessGone(const WalkEntry& entry, int reason);
    void warnOfFileSystem(const WalkEntry& entry, const char* what);

    const Context& context;
    bool isRootReadOnly;
    ScanCounts& counts;
    bool isAllFlushed;
    WrittenFileSystems written;
    std::atomic<dev_t> lastWritten{0};
    std::mutex mutex;
    std::set<dev_t> leftAlone;
};
