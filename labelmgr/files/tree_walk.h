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
#include "labelmgr/files/mount_table.h"

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
    const EntryStatus& status;
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
    // An open descriptor; they are counted.
    struct Descriptor {
        Descriptor(UniqueFd opened, std::atomic<size_t>& countOfOpen)
            : file(std::move(opened)), count(countOfOpen) {
            ++count;
        }
        ~Descriptor() { --count; }
        Descriptor(const Descriptor&) = delete;
        Descriptor& operator=(const Descriptor&) = delete;

        UniqueFd file;
        std::atomic<size_t>& count;
    };
    // Stays open while directories in it wait, unless too many would; then it is opened
    // again when it is needed.
    struct Directory {
        std::shared_ptr<Directory> parent;  // none of the root
        std::string name;
        std::string path;
        EntryStatus status;
        std::shared_ptr<const WalkState> state;
        std::mutex mutex;
        std::shared_ptr<const Descriptor> descriptor;
    };
    // A directory that waits to be read.
    struct Waiting {
        std::shared_ptr<Directory> parent;
        std::string name;
    };

    void work();
    template <typename Work>
    void attempt(const std::string& name, Work work);
    bool next(Waiting& item);
    void finishItem();
    void addWaiting(std::vector<Waiting>& items);

    std::shared_ptr<Directory> open(const Waiting& item);
    int openDescriptor(Directory& directory);
    static UniqueFd openKnown(int parent, const Directory& directory);
    std::shared_ptr<const Descriptor> descriptorOf(Directory& directory);
    void closeIfTooMany(Directory& directory);
    bool isLeftAlone(dev_t device, dev_t parentDevice) const;

    struct Reading;
    void read(const std::shared_ptr<Directory>& directory);
    void readEntries(Reading& reading, const char* begin, const char* end);
    void readEntry(Reading& reading, const char* name, bool isDirectory);

    TreeVisitor& visitor;
    unsigned int threads;
    bool rootIsRemote = false;
    std::atomic<size_t> openDescriptors = 0;
    size_t mostDescriptors = 0;
    std::atomic<bool> isCancelled = false;

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Waiting> waiting;  // taken from the end, which keeps the list and the open directories few
    size_t unfinished = 0;         // waiting or being read
    std::exception_ptr failure;
};
