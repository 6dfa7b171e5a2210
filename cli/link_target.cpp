#include "cli/link_target.h"

#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

bool FileSystems::mayNotAnswer(dev_t device, dev_t directorysDevice) {
    const auto isRemote = [this](dev_t at) {
        return mounts.kindOf(at).value_or(FileSystemKind::kRemote) == FileSystemKind::kRemote;
    };
    return device != directorysDevice && isRemote(device) && !isRemote(root);
}

int FileSystems::look(int directory, dev_t device, const char* name, EntryStatus& status) {
    const int reason = lookAt(directory, name, status);
    return reason == 0 && mayNotAnswer(status.device, device) ? EREMOTE : reason;
}

namespace {

constexpr int kMostLinks = 40;  // as the kernel follows
constexpr int kStandsFor = O_PATH | O_CLOEXEC;

// As far as it is one mount, the kernel follows it all.
UniqueFd openWithinMount(int directory, const char* path) {
    open_how how{};
    how.flags = kStandsFor;
    how.resolve = RESOLVE_NO_XDEV;
    return UniqueFd(static_cast<int>(syscall(SYS_openat2, directory, path, &how, sizeof(how))));
}

bool leadsToAnotherMount(int reason) {
    return reason == EXDEV || reason == ENOSYS || reason == EPERM;  // or the kernel cannot tell
}

// Takes the first component off; a slash at the end is as good as one to ".".
std::string takeComponent(std::string& path) {
    const size_t end = path.find('/');
    std::string component = path.substr(0, end);
    const size_t next = path.find_first_not_of('/', end);
    path = next != std::string::npos ? path.substr(next) : end != std::string::npos ? "." : "";
    return component;
}

class LinkFollower {
 public:
    LinkFollower(FileSystems& ofWalk, int directory, dev_t device, const char* name)
        : fileSystems(ofWalk), at(directory), atDevice(device), rest(name) {}

    int follow(UniqueFd& target) {
        while (!rest.empty()) {
            UniqueFd end = openWithinMount(at, rest.c_str());
            if (end) {
                held = std::move(end);
                break;
            }
            const int reason = !leadsToAnotherMount(errno) ? errno : rest.front() == '/' ? toRoot() : step();
            if (reason != 0) {
                return reason;
            }
        }
        target = std::move(held);
        return 0;
    }

 private:
    int toRoot() {
        rest.erase(0, rest.find_first_not_of('/'));
        rest = rest.empty() ? "." : rest;
        UniqueFd top(open("/", kStandsFor));  // which this program comes from, and so answers
        EntryStatus status;
        const int reason = top ? lookAt(top.get(), "", status) : errno;
        return reason != 0 ? reason : moveTo(std::move(top), status.device);
    }

    int step() {
        const std::string component = takeComponent(rest);
        UniqueFd next(openat(at, component.c_str(), kStandsFor | O_NOFOLLOW));
        EntryStatus status;
        const int reason = next ? fileSystems.look(next.get(), atDevice, "", status) : errno;
        if (reason != 0 || !S_ISLNK(status.mode)) {
            return reason != 0 ? reason : moveTo(std::move(next), status.device);
        }
        if (!fileSystems.isPseudo(status.device)) {
            return replaceByText(next.get());
        }
        // The text of a link of /proc need not be a path.
        next = UniqueFd(openat(at, component.c_str(), kStandsFor));
        const int end = next ? fileSystems.look(next.get(), atDevice, "", status) : errno;
        return end != 0 ? end : moveTo(std::move(next), status.device);
    }

    int replaceByText(int link) {
        std::array<char, PATH_MAX> text;
        const ssize_t size = ++links <= kMostLinks ? readlinkat(link, "", text.data(), text.size()) : -1;
        if (size < 0) {
            return links <= kMostLinks ? errno : ELOOP;
        }
        rest = std::string(text.data(), static_cast<size_t>(size)) + (rest.empty() ? "" : '/' + rest);
        return 0;
    }

    int moveTo(UniqueFd next, dev_t device) {
        held = std::move(next);
        at = held.get();
        atDevice = device;
        return 0;
    }

    FileSystems& fileSystems;
    int at;
    dev_t atDevice;
    std::string rest;  // the path from there on
    UniqueFd held;     // where `at` is, once it is not the directory any more
    int links = 0;
};

}  // namespace

int openLinkTarget(FileSystems& fileSystems, int directory, dev_t device, const char* name,
                   UniqueFd& target) {
    return LinkFollower(fileSystems, directory, device, name).follow(target);
}
