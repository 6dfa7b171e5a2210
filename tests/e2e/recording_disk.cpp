// Disks that remember what came to them in which order, and show what a power cut would
// have left of it. Served as files of a FUSE file system, in the kernel's own protocol,
// for loop devices to stand on. One process and one thread, so that there is one order
// over all disks.
//
// Usage: recording_disk DIRECTORY DISK...
//
// DIRECTORY/DISK is the disk whose content is in DISK.now. Each write and flush becomes a
// line "write DISK" or "flush DISK" of standard output before it is answered.
// "EVENTS PERCENT SEED", written to DIRECTORY/cut, cuts the power after that many events:
// DISK.cut, which holds what DISK.now began with, gets what was written before the disk's
// last flush, and of the later writes, in blocks of 4 KiB, PERCENT by chance. Ends when
// DIRECTORY is unmounted.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <linux/fuse.h>
#include <random>
#include <sstream>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

constexpr uint64_t kBlockSize = 4096;
constexpr uint32_t kMaxWrite = 128 * 1024;

void require(bool done, const std::string& what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

int opened(const std::string& path) {
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    require(file >= 0, path);
    return file;
}

void writeAt(int file, const char* data, size_t size, uint64_t offset) {
    require(pwrite(file, data, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size), "pwrite");
}

struct Event {
    uint64_t disk;
    uint64_t offset;
    std::string data;  // none of a flush
};

class FileSystem {
 public:
    FileSystem(const std::string& directory, std::vector<std::string> disks)
        : names_(std::move(disks)), device_(opened("/dev/fuse")) {
        for (const std::string& name : names_) {
            files_.push_back(opened(name + ".now"));
        }
        names_.push_back("cut");
        const std::string options = "fd=" + std::to_string(device_) + ",rootmode=40000,user_id=0,group_id=0";
        require(mount("disks", directory.c_str(), "fuse", MS_NODEV | MS_NOSUID, options.c_str()) == 0,
                directory);
    }

    void serve() {
        std::vector<char> request(kMaxWrite + kBlockSize);
        for (;;) {
            if (read(device_, request.data(), request.size()) >= 0) {
                answer(*reinterpret_cast<const fuse_in_header*>(request.data()),
                       request.data() + sizeof(fuse_in_header));
            } else if (errno == ENODEV) {  // unmounted
                return;
            } else {
                require(errno == EINTR || errno == ENOENT, "/dev/fuse");
            }
        }
    }

 private:
    // The directory's node is the first one; the files follow in the order of names_.
    static uint64_t indexOf(uint64_t node) { return node - FUSE_ROOT_ID - 1; }

    void answer(const fuse_in_header& request, const char* argument) {
        const uint64_t index = indexOf(request.nodeid);
        switch (request.opcode) {
            case FUSE_INIT: {
                fuse_init_out out{};
                out.major = FUSE_KERNEL_VERSION;
                out.minor = FUSE_KERNEL_MINOR_VERSION;
                out.flags = FUSE_BIG_WRITES;
                out.max_write = kMaxWrite;
                return reply(request, &out, sizeof(out));
            }
            case FUSE_LOOKUP: {
                const auto name = std::find(names_.begin(), names_.end(), argument);
                if (name == names_.end()) {
                    return reply(request, nullptr, 0, ENOENT);
                }
                fuse_entry_out out{};
                out.nodeid = static_cast<uint64_t>(name - names_.begin()) + FUSE_ROOT_ID + 1;
                out.attr = attributes(out.nodeid);
                return reply(request, &out, sizeof(out));
            }
            case FUSE_GETATTR:
            case FUSE_SETATTR: {
                fuse_attr_out out{};
                out.attr = attributes(request.nodeid);
                return reply(request, &out, sizeof(out));
            }
            case FUSE_READ: {
                const auto& in = *reinterpret_cast<const fuse_read_in*>(argument);
                std::string data(in.size, '\0');
                const ssize_t size =
                    pread(files_.at(index), data.data(), in.size, static_cast<off_t>(in.offset));
                require(size >= 0, "pread");
                return reply(request, data.data(), static_cast<size_t>(size));
            }
            case FUSE_WRITE: {
                const auto& in = *reinterpret_cast<const fuse_write_in*>(argument);
                const std::string data(reinterpret_cast<const char*>(&in + 1), in.size);
                if (index < files_.size()) {
                    writeAt(files_[index], data.data(), data.size(), in.offset);
                    record("write", {index, in.offset, data});
                } else {
                    cut(data);
                }
                fuse_write_out out{};
                out.size = in.size;
                return reply(request, &out, sizeof(out));
            }
            case FUSE_FSYNC:
                record("flush", {index, 0, ""});
                return reply(request, nullptr, 0);
            case FUSE_FORGET:
            case FUSE_BATCH_FORGET:
                return;  // no answer is awaited
            default:
                return reply(request, nullptr, 0, ENOSYS);
        }
    }

    void record(const char* kind, const Event& event) {
        events_.push_back(event);
        std::printf("%s %s\n", kind, names_[event.disk].c_str());
        std::fflush(stdout);
    }

    void cut(const std::string& request) const {
        size_t count = 0;
        unsigned percent = 0;
        unsigned seed = 0;
        std::istringstream(request) >> count >> percent >> seed;
        std::vector<size_t> flushed(files_.size());
        for (size_t i = 0; i < count; i++) {
            if (events_.at(i).data.empty()) {
                flushed[events_[i].disk] = i;
            }
        }
        std::vector<int> left;
        for (size_t disk = 0; disk < files_.size(); disk++) {
            left.push_back(opened(names_[disk] + ".cut"));
        }
        std::mt19937 random(seed);
        for (size_t i = 0; i < count; i++) {
            const auto& [disk, offset, data] = events_[i];
            for (size_t at = 0, size = 0; at < data.size(); at += size) {
                size = std::min(data.size() - at, kBlockSize - (offset + at) % kBlockSize);
                if (i < flushed[disk] || random() % 100 < percent) {
                    writeAt(left[disk], &data[at], size, offset + at);
                }
            }
        }
        std::for_each(left.begin(), left.end(), close);
    }

    fuse_attr attributes(uint64_t node) const {
        struct stat status {};
        fuse_attr attributes{};
        attributes.ino = node;
        attributes.mode = node == FUSE_ROOT_ID ? S_IFDIR | 0700 : S_IFREG | 0600;
        if (indexOf(node) < files_.size() && fstat(files_[indexOf(node)], &status) == 0) {
            attributes.size = static_cast<uint64_t>(status.st_size);
        }
        attributes.nlink = 1;
        attributes.blksize = kBlockSize;
        return attributes;
    }

    void reply(const fuse_in_header& request, const void* data, size_t size, int error = 0) const {
        fuse_out_header header{static_cast<uint32_t>(sizeof(header) + size), -error, request.unique};
        const iovec parts[] = {{&header, sizeof(header)}, {const_cast<void*>(data), size}};
        require(writev(device_, parts, 2) >= 0 || errno == ENOENT, "/dev/fuse");  // the asker was killed
    }

    std::vector<std::string> names_;
    std::vector<int> files_;
    int device_;
    std::vector<Event> events_;
};

}  // namespace

int main(int argc, char** argv) {
    FileSystem(argv[1], {argv + 2, argv + argc}).serve();
}
