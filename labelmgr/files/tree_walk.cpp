#include "labelmgr/files/tree_walk.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <iterator>
#include <new>
#include <sys/resource.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <utility>

#include "base/directories.h"
#include "labelmgr/files/pinned_file.h"
#include "labelmgr/model/operation_error.h"

namespace {

constexpr size_t kReadSize = size_t{64} * 1024;
constexpr size_t kMostDescriptors = 512;  // of directories that wait
constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// A name that is gone, or is no directory any more.
bool hasVanished(int reason) {
    return isGone(reason) || reason == ELOOP;
}

std::string childPath(const std::string& directory, const std::string& name) {
    std::string path = directory;
    if (path.back() != '/') {
        path.push_back('/');
    }
    return path.append(name);
}

}  // namespace

UniqueFd TreeWalk::openRoot(const std::string& path) {
    UniqueFd root(openat(pinPath(path, Remote::kAllow).descriptor.get(), ".", kDirectoryFlags));
    if (!root) {
        throw systemError(path);
    }
    return root;
}

void TreeWalk::run(UniqueFd rootDescriptor, const std::string& root,
                   const std::shared_ptr<const WalkState>& rootState) {
    raiseDescriptorLimit();
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    mostDescriptors = static_cast<size_t>(std::min<rlim_t>(kMostDescriptors, limit.rlim_cur / 4));
    auto directory = std::make_shared<Directory>();
    if (const int reason = lookAt(rootDescriptor.get(), "", directory->status)) {
        throw systemError(root, reason);
    }
    const FileSystemKind kind = kindOfDevice(directory->status.device);
    if (kind == FileSystemKind::kPseudo) {
        throw OperationError(root, "a file system without files of its own");
    }
    rootIsRemote = kind == FileSystemKind::kRemote;
    directory->path = root;
    directory->state = rootState;
    directory->descriptor = std::make_shared<Descriptor>(std::move(rootDescriptor), openDescriptors);

    unfinished = 1;
    waiting.clear();
    std::vector<std::jthread> workers;
    try {
        for (unsigned int i = 1; i < threads; ++i) {
            workers.emplace_back([this] { work(); });
        }
    } catch (const std::system_error&) {  // no more threads to be had: fewer do it, too
    }
    attempt(root, [&] { read(directory); });
    directory.reset();
    finishItem();
    work();
    workers.clear();
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void TreeWalk::work() {
    Waiting item;
    while (next(item)) {
        attempt(item.name, [&] {
            if (const std::shared_ptr<Directory> directory = open(item)) {
                read(directory);
                closeIfTooMany(*directory);
            }
            closeIfTooMany(*item.parent);
        });
        item.parent.reset();
        finishItem();
    }
}

// Nothing may leave a thread. A lack of memory costs one directory; anything else ends
// the walk with the first failure.
template <typename Work>
void TreeWalk::attempt(const std::string& name, Work work) {
    try {
        try {
            work();
        } catch (const std::bad_alloc&) {
            visitor.fail(name, ENOMEM);
        }
    } catch (...) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!failure) {
            failure = std::current_exception();
        }
        isCancelled = true;
    }
}

bool TreeWalk::next(Waiting& item) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return !waiting.empty() || unfinished == 0; });
    if (isCancelled && !waiting.empty()) {
        unfinished -= waiting.size();
        waiting.clear();
        changed.notify_all();
    }
    if (waiting.empty()) {
        return false;
    }
    item = std::move(waiting.back());
    waiting.pop_back();
    return true;
}

void TreeWalk::finishItem() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (--unfinished == 0) {
        changed.notify_all();
    }
}

void TreeWalk::addWaiting(std::vector<Waiting>& items) {
    if (items.empty()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    waiting.insert(waiting.end(), std::make_move_iterator(items.begin()),
                   std::make_move_iterator(items.end()));  // all, or a failure and none
    unfinished += items.size();
    items.clear();
    changed.notify_all();
}

std::shared_ptr<TreeWalk::Directory> TreeWalk::open(const Waiting& item) {
    auto directory = std::make_shared<Directory>();
    directory->parent = item.parent;
    directory->name = item.name;
    directory->path = childPath(item.parent->path, item.name);
    directory->state = visitor.enter(directory->path, item.parent->state);
    if (!directory->state) {
        return nullptr;
    }
    const int reason = openDescriptor(*directory);
    if (reason != 0 && !hasVanished(reason)) {
        visitor.fail(directory->path, reason);
    }
    return directory->descriptor ? directory : nullptr;
}

// 0, without a descriptor when the directory is left alone; or errno.
int TreeWalk::openDescriptor(Directory& directory) {
    const std::shared_ptr<const Descriptor> parent = descriptorOf(*directory.parent);
    if (!parent) {
        return ENOENT;
    }
    const char* name = directory.name.c_str();
    if (const int reason = lookAt(parent->file.get(), name, directory.status)) {
        return reason;
    }
    if (isLeftAlone(directory.status.device, directory.parent->status.device)) {
        return 0;
    }
    UniqueFd opened = openKnown(parent->file.get(), directory);
    if (!opened) {
        return errno;
    }
    directory.descriptor = std::make_shared<Descriptor>(std::move(opened), openDescriptors);
    return 0;
}

// A directory that has been looked at; with ENOENT none when another one has its name by
// now.
UniqueFd TreeWalk::openKnown(int parent, const Directory& directory) {
    UniqueFd opened(openat(parent, directory.name.c_str(), kDirectoryFlags));
    EntryStatus status;
    if (!opened) {
        return opened;
    }
    const int reason = lookAt(opened.get(), "", status);
    if (reason == 0 && status.device == directory.status.device && status.inode == directory.status.inode) {
        return opened;
    }
    opened.reset();
    errno = reason != 0 ? reason : ENOENT;
    return opened;
}

// Where it was closed it is opened again, from the nearest one above it that is open,
// without keeping those between open. Null when it is not there any more.
std::shared_ptr<const TreeWalk::Descriptor> TreeWalk::descriptorOf(Directory& directory) {
    std::vector<Directory*> closed;
    std::shared_ptr<const Descriptor> above;
    for (Directory* next = &directory; !above; next = next->parent.get()) {
        const std::lock_guard<std::mutex> lock(next->mutex);
        above = next->descriptor;
        if (!above) {
            closed.push_back(next);
        }
    }
    for (; !closed.empty(); closed.pop_back()) {
        UniqueFd opened = openKnown(above->file.get(), *closed.back());
        if (!opened) {
            if (!hasVanished(errno)) {
                visitor.fail(closed.back()->path, errno);
            }
            return nullptr;
        }
        above = std::make_shared<Descriptor>(std::move(opened), openDescriptors);
    }
    const std::lock_guard<std::mutex> lock(directory.mutex);
    directory.descriptor = above;
    return above;
}

void TreeWalk::closeIfTooMany(Directory& directory) {
    if (openDescriptors > mostDescriptors && directory.parent) {
        const std::lock_guard<std::mutex> lock(directory.mutex);
        directory.descriptor.reset();
    }
}

bool TreeWalk::isLeftAlone(dev_t device, dev_t parentDevice) const {
    if (device == parentDevice) {
        return false;
    }
    const FileSystemKind kind = kindOfDevice(device);
    return kind == FileSystemKind::kPseudo || (kind == FileSystemKind::kRemote && !rootIsRemote);
}

// One directory, and what has been found in it.
struct TreeWalk::Reading {
    std::shared_ptr<Directory> directory;
    std::shared_ptr<const Descriptor> descriptor;
    std::string path;     // of the entry at hand
    size_t prefixLength;  // of the directory and a slash
    std::vector<Waiting> found;
    bool isTooLong = false;
};

void TreeWalk::read(const std::shared_ptr<Directory>& directory) {
    thread_local std::vector<char> buffer(kReadSize);
    std::string prefix = childPath(directory->path, "");
    const size_t prefixLength = prefix.size();
    Reading reading{directory, directory->descriptor, std::move(prefix), prefixLength, {}};
    const int descriptor = reading.descriptor->file.get();
    visitor.visit({descriptor, "", directory->path, directory->status}, *directory->state);
    ssize_t size = 0;
    while (!isCancelled && (size = getdents64(descriptor, buffer.data(), buffer.size())) > 0) {
        readEntries(reading, buffer.data(), buffer.data() + size);
        addWaiting(reading.found);
    }
    if (size < 0 && errno != ENOENT) {
        visitor.fail(directory->path, errno);
    }
}

void TreeWalk::readEntries(Reading& reading, const char* begin, const char* end) {
    while (begin < end) {
        const auto* entry = reinterpret_cast<const dirent64*>(begin);
        begin += entry->d_reclen;
        if (isSelfOrParent(entry->d_name)) {
            continue;
        }
        reading.path.append(entry->d_name);
        if (reading.path.size() < PATH_MAX) {
            readEntry(reading, entry->d_name, entry->d_type == DT_DIR);
        } else if (!std::exchange(reading.isTooLong, true)) {  // of many, one is told
            visitor.fail(reading.path, ENAMETOOLONG);
        }
        reading.path.resize(reading.prefixLength);
    }
}

void TreeWalk::readEntry(Reading& reading, const char* name, bool isDirectory) {
    const int descriptor = reading.descriptor->file.get();
    EntryStatus status;
    const int reason = isDirectory ? 0 : lookAt(descriptor, name, status);
    // Not every file system tells the type of an entry.
    if (isDirectory || (reason == 0 && S_ISDIR(status.mode))) {
        reading.found.push_back({reading.directory, name});
    } else if (reason != 0) {
        if (!hasVanished(reason)) {
            visitor.fail(reading.path, reason);
        }
    } else if (!isLeftAlone(status.device, reading.directory->status.device)) {
        visitor.visit({descriptor, name, reading.path, status}, *reading.directory->state);
    }
}
