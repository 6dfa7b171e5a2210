#include "labelmgr/files/tree_walk.h"

#include <cerrno>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <system_error>
#include <thread>

#include "base/directories.h"
#include "labelmgr/files/mount_table.h"
#include "labelmgr/files/pinned_file.h"
#include "labelmgr/model/operation_error.h"

namespace {

constexpr size_t kReadSize = size_t{64} * 1024;
constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// A name that is gone, or is no directory any more.
bool hasVanished(int reason) {
    return reason == ENOENT || reason == ENOTDIR || reason == ELOOP;
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
    raiseDescriptorLimit();  // the directories that wait keep their parents open
    auto directory = std::make_shared<Directory>();
    directory->descriptor = std::move(rootDescriptor);
    EntryStatus status;
    if (const int reason = lookAt(directory->descriptor.get(), "", status)) {
        throw systemError(root, reason);
    }
    const FileSystemKind kind = kindOfDevice(status.device);
    if (kind == FileSystemKind::kPseudo) {
        throw OperationError(root, "a file system without files of its own");
    }
    rootIsRemote = kind == FileSystemKind::kRemote;
    directory->path = root;
    directory->device = status.device;
    directory->mode = status.mode;
    directory->state = rootState;

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
            if (const std::shared_ptr<const Directory> directory = open(item)) {
                item.parent.reset();
                read(directory);
            }
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
    unfinished += items.size();
    std::move(items.begin(), items.end(), std::back_inserter(waiting));
    items.clear();
    changed.notify_all();
}

std::shared_ptr<const TreeWalk::Directory> TreeWalk::open(const Waiting& item) {
    auto directory = std::make_shared<Directory>();
    directory->path = childPath(item.parent->path, item.name);
    directory->state = visitor.enter(directory->path, item.parent->state);
    if (!directory->state) {
        return nullptr;
    }
    const int parent = item.parent->descriptor.get();
    EntryStatus found;
    int reason = lookAt(parent, item.name.c_str(), found);
    if (reason == 0) {
        if (isLeftAlone(found.device, item.parent->device)) {
            return nullptr;
        }
        directory->descriptor = UniqueFd(openat(parent, item.name.c_str(), kDirectoryFlags));
        reason = directory->descriptor ? 0 : errno;
    }
    EntryStatus opened;
    if (reason == 0) {
        reason = lookAt(directory->descriptor.get(), "", opened);
    }
    if (reason != 0) {
        if (!hasVanished(reason)) {
            visitor.fail(directory->path, reason);
        }
        return nullptr;
    }
    if (opened.device != found.device) {  // something was mounted over it meanwhile
        return nullptr;
    }
    directory->device = opened.device;
    directory->mode = opened.mode;
    return directory;
}

bool TreeWalk::isLeftAlone(dev_t device, dev_t parentDevice) const {
    if (device == parentDevice) {
        return false;
    }
    const FileSystemKind kind = kindOfDevice(device);
    return kind == FileSystemKind::kPseudo || (kind == FileSystemKind::kRemote && !rootIsRemote);
}

void TreeWalk::read(const std::shared_ptr<const Directory>& directory) {
    thread_local std::vector<char> buffer(kReadSize);
    const int descriptor = directory->descriptor.get();
    visitor.visit({descriptor, "", directory->path, directory->mode, directory->device}, *directory->state);
    std::vector<Waiting> found;
    std::string path = childPath(directory->path, "");
    ssize_t size = 0;
    while (!isCancelled && (size = getdents64(descriptor, buffer.data(), buffer.size())) > 0) {
        readEntries(directory, buffer.data(), buffer.data() + size, path, found);
        addWaiting(found);
    }
    if (size < 0 && errno != ENOENT) {
        visitor.fail(directory->path, errno);
    }
}

void TreeWalk::readEntries(const std::shared_ptr<const Directory>& directory, const char* begin,
                           const char* end, std::string& path, std::vector<Waiting>& found) {
    const size_t prefixLength = path.size();
    while (begin < end) {
        const auto* entry = reinterpret_cast<const dirent64*>(begin);
        begin += entry->d_reclen;
        if (isSelfOrParent(entry->d_name)) {
            continue;
        }
        if (entry->d_type == DT_DIR) {
            found.push_back({directory, entry->d_name});
            continue;
        }
        EntryStatus status;  // not every file system tells the type of an entry
        const int reason = lookAt(directory->descriptor.get(), entry->d_name, status);
        if (reason == 0 && S_ISDIR(status.mode)) {
            found.push_back({directory, entry->d_name});
            continue;
        }
        path.append(entry->d_name);
        if (reason != 0) {
            if (!hasVanished(reason)) {
                visitor.fail(path, reason);
            }
        } else if (!isLeftAlone(status.device, directory->device)) {
            visitor.visit({directory->descriptor.get(), entry->d_name, path, status.mode, status.device},
                          *directory->state);
        }
        path.resize(prefixLength);
    }
}
