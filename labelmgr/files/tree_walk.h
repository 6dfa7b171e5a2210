#pragma once

#include <atomic>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <vector>

#include "base/handles.h"

// Walks a tree with several threads, pinned to it by descriptors: after the root no path
// of more than one component is looked up, and no link is followed, so that nothing that
// is swapped in meanwhile leads outside. The threads share a stack of directories that
// wait to be read; each takes one, opens it relative to its parent, reads it, hands what
// is in it to the visitor and puts the directories that it finds on the stack. Memory
// grows with the directories that wait, not with the files.
//
// Pseudo file systems are left alone, and so are network and FUSE file systems unless the
// root lies on one; which one holds an entry is found out before the entry is opened or
// touched, since it may never answer. A name that vanishes is not a failure.

// What a visitor knows about a directory; handed down to what is in it.
struct WalkState {
    virtual ~WalkState() = default;
};

struct WalkEntry {
    int directory;            // a descriptor of the directory that holds it
    const char* name;         // in that directory; empty for the directory itself
    const std::string& path;  // from "/" on
    mode_t mode;
    dev_t device;
};

// Called from all threads of a walk at once.
class TreeVisitor {
 public:
    virtual ~TreeVisitor() = default;

    // Before a directory is opened: what is known about it, or null to leave it and all
    // below it alone.
    virtual std::shared_ptr<const WalkState> enter(const std::string& path,
                                                   const std::shared_ptr<const WalkState>& parent) = 0;
    // For every directory, after it was opened, and everything in it that is not a
    // directory.
    virtual void visit(const WalkEntry& entry, const WalkState& state) = 0;
    // What could not be opened or read, with errno.
    virtual void fail(const std::string& path, int reason) = 0;
};

class TreeWalk {
 public:
    TreeWalk(TreeVisitor& treeVisitor, unsigned int threadCount)
        : visitor(treeVisitor), threads(threadCount) {}

    // The root for run, found by its canonical path without following a link. Throws
    // OperationError when it is not a directory or cannot be opened.
    static UniqueFd openRoot(const std::string& path);

    // Takes the root's descriptor and its canonical path, which is not looked up again.
    // Throws OperationError when the root lies on a pseudo file system, and what a
    // visitor throws.
    void run(UniqueFd rootDescriptor, const std::string& root,
             const std::shared_ptr<const WalkState>& rootState);

    // From another thread: no further directory is read, and run returns.
    void cancel() { isCancelled = true; }

 private:
    struct Directory {
        UniqueFd descriptor;
        std::string path;
        dev_t device = 0;
        mode_t mode = 0;
        std::shared_ptr<const WalkState> state;
    };
    // A directory that waits to be read. Its parent stays open until then.
    struct Waiting {
        std::shared_ptr<const Directory> parent;
        std::string name;
    };

    void work();
    template <typename Work>
    void attempt(const std::string& name, Work work);
    bool next(Waiting& item);
    void finishItem();
    void addWaiting(std::vector<Waiting>& items);

    std::shared_ptr<const Directory> open(const Waiting& item);
    bool isLeftAlone(dev_t device, dev_t parentDevice) const;
    void read(const std::shared_ptr<const Directory>& directory);
    void readEntries(const std::shared_ptr<const Directory>& directory, const char* begin, const char* end,
                     std::string& path, std::vector<Waiting>& found);

    TreeVisitor& visitor;
    unsigned int threads;
    bool rootIsRemote = false;
    std::atomic<bool> isCancelled = false;

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Waiting> waiting;  // taken from the end, which keeps the list and the open directories few
    size_t unfinished = 0;         // waiting or being read
    std::exception_ptr failure;
};
