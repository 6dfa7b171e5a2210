// Disks that remember what came to them in which order, and show what a power cut would
// have left of it. Served as files of a FUSE file system, in the kernel's own protocol,
// for loop devices to stand on. One process and one thread, so that there is one order
// over all disks. In DIRECTORY there is:
//
//   NAME      a disk that begins as IMAGE; its writes and flushes are recorded
//   NAME.cut  the same disk after the last cut
//   marks     what is written here is recorded as a mark between them
//   events    reads as a line for each recorded event: "flush NAME", "write NAME" or
//             "mark TEXT"
//   cut       "EVENTS PERCENT SEED" cuts the power after that many events: a disk has
//             then what was written before its last flush, and of the later writes, in
//             blocks of 4 KiB, PERCENT by chance
//
// Ends when DIRECTORY is unmounted. Usage: recording_disk DIRECTORY NAME=IMAGE...

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <linux/fuse.h>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <system_error>
#include <unistd.h>
#include <unordered_map>
#include <vector>

namespace {

constexpr uint64_t kBlockSize = 4096;
constexpr uint32_t kMaxWrite = 128 * 1024;

// Calls piece(offset, part of data) for each block that data reaches into.
template <typename Piece>
void forEachBlock(uint64_t offset, std::string_view data, Piece piece) {
    while (!data.empty()) {
        const std::string_view part = data.substr(0, kBlockSize - offset % kBlockSize);
        piece(offset, part);
        offset += part.size();
        data.remove_prefix(part.size());
    }
}

// The blocks that are not zero.
class Content {
 public:
    void write(uint64_t offset, std::string_view data) {
        forEachBlock(offset, data, [this](uint64_t at, std::string_view part) {
            std::copy(part.begin(), part.end(), blocks_[at / kBlockSize].begin() + at % kBlockSize);
        });
    }

    void read(uint64_t offset, std::string& data) const {
        forEachBlock(offset, data, [&](uint64_t at, std::string_view part) {
            if (const auto block = blocks_.find(at / kBlockSize); block != blocks_.end()) {
                data.replace(at - offset, part.size(), &block->second[at % kBlockSize], part.size());
            }
        });
    }

 private:
    std::unordered_map<uint64_t, std::array<char, kBlockSize>> blocks_;
};

struct Disk {
    std::string name;
    uint64_t size;
    Content first, now, cut;
};

struct Event {
    enum Kind { kWrite, kFlush, kMark } kind;
    size_t disk;
    uint64_t offset;
    std::string data;
};

struct Recording {
    std::vector<Disk> disks;
    std::vector<Event> events;
};

Disk diskOf(const std::string& name, const std::string& image) {
    Disk disk{name, 0, {}, {}, {}};
    std::ifstream file(image, std::ios::binary);
    std::string block(kBlockSize, '\0');
    for (; file.read(block.data(), kBlockSize); disk.size += kBlockSize) {
        if (block.find_first_not_of('\0') != std::string::npos) {
            disk.first.write(disk.size, block);
        }
    }
    disk.now = disk.first;
    return disk;
}

std::string listOf(const Recording& recording) {
    std::string lines;
    for (const Event& event : recording.events) {
        lines += event.kind == Event::kMark    ? "mark " + event.data
                 : event.kind == Event::kWrite ? "write " + recording.disks[event.disk].name
                                               : "flush " + recording.disks[event.disk].name;
        lines += '\n';
    }
    return lines;
}

void cut(Recording& recording, const std::string& request) {
    size_t count = 0;
    unsigned percent = 0;
    unsigned seed = 0;
    std::istringstream(request) >> count >> percent >> seed;
    count = std::min(count, recording.events.size());
    std::vector<size_t> flushed(recording.disks.size());
    for (size_t i = 0; i < count; i++) {
        if (recording.events[i].kind == Event::kFlush) {
            flushed[recording.events[i].disk] = i;
        }
    }
    for (Disk& disk : recording.disks) {
        disk.cut = disk.first;
    }
    std::mt19937 random(seed);
    for (size_t i = 0; i < count; i++) {
        const Event& event = recording.events[i];
        if (event.kind == Event::kWrite) {
            forEachBlock(event.offset, event.data, [&](uint64_t at, std::string_view part) {
                if (i < flushed[event.disk] || random() % 100 < percent) {
                    recording.disks[event.disk].cut.write(at, part);
                }
            });
        }
    }
}

// Nodes: the directory, then three files of control, then each disk and what a cut left
// of it.
enum Node : uint64_t { kDirectory = FUSE_ROOT_ID, kMarks, kEvents, kCut, kFirstDisk };

class FileSystem {
 public:
    FileSystem(Recording& recording, const char* directory)
        : recording_(recording), device_(open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
        const std::string options = "fd=" + std::to_string(device_) + ",rootmode=40000,user_id=0,group_id=0";
        if (device_ < 0 ||
            mount("recording_disk", directory, "fuse", MS_NODEV | MS_NOSUID, options.c_str()) != 0) {
            throw std::system_error(errno, std::generic_category(), directory);
        }
        names_ = {"marks", "events", "cut"};
        for (const Disk& disk : recording_.disks) {
            names_.push_back(disk.name);
            names_.push_back(disk.name + ".cut");
        }
    }

    void serve() {
        std::vector<char> request(kMaxWrite + kBlockSize);
        for (;;) {
            const ssize_t size = read(device_, request.data(), request.size());
            if (size >= 0) {
                answer(*reinterpret_cast<const fuse_in_header*>(request.data()),
                       request.data() + sizeof(fuse_in_header));
            } else if (errno == ENODEV) {  // unmounted
                return;
            } else if (errno != EINTR && errno != ENOENT) {
                throw std::system_error(errno, std::generic_category(), "/dev/fuse");
            }
        }
    }

 private:
    void answer(const fuse_in_header& request, const char* argument) {
        switch (request.opcode) {
            case FUSE_INIT: {
                fuse_init_out out{};
                out.major = FUSE_KERNEL_VERSION;
                out.minor = FUSE_KERNEL_MINOR_VERSION;
                out.flags = FUSE_BIG_WRITES;
                out.max_write = kMaxWrite;
                return reply(request, out);
            }
            case FUSE_LOOKUP: {
                const auto name = std::find(names_.begin(), names_.end(), argument);
                if (name == names_.end()) {
                    return reply(request, ENOENT);
                }
                fuse_entry_out out{};
                out.nodeid = static_cast<uint64_t>(name - names_.begin()) + kMarks;
                out.attr = attributes(out.nodeid);
                return reply(request, out);
            }
            case FUSE_GETATTR:
            case FUSE_SETATTR: {
                fuse_attr_out out{};
                out.attr = attributes(request.nodeid);
                return reply(request, out);
            }
            case FUSE_OPEN: {
                fuse_open_out out{};
                out.open_flags = FOPEN_DIRECT_IO;
                return reply(request, out);
            }
            case FUSE_READ:
                return answerRead(request, *reinterpret_cast<const fuse_read_in*>(argument));
            case FUSE_WRITE:
                return answerWrite(request, *reinterpret_cast<const fuse_write_in*>(argument));
            case FUSE_FSYNC:
                if (request.nodeid >= kFirstDisk && !isCut(request)) {
                    recording_.events.push_back({Event::kFlush, indexOf(request.nodeid), 0, {}});
                }
                return reply(request, 0);
            case FUSE_FLUSH:
            case FUSE_RELEASE:
                return reply(request, 0);
            case FUSE_FORGET:
            case FUSE_BATCH_FORGET:
                return;  // no answer is awaited
            default:
                return reply(request, ENOSYS);
        }
    }

    void answerRead(const fuse_in_header& request, const fuse_read_in& in) {
        std::string data;
        if (request.nodeid >= kFirstDisk) {
            const Disk& disk = recording_.disks[indexOf(request.nodeid)];
            data.resize(std::min<uint64_t>(in.size, disk.size - std::min(disk.size, in.offset)));
            (isCut(request) ? disk.cut : disk.now).read(in.offset, data);
        } else if (request.nodeid == kEvents) {
            const std::string events = listOf(recording_);
            data = events.substr(std::min<uint64_t>(events.size(), in.offset), in.size);
        }
        send(request, 0, data.data(), data.size());
    }

    void answerWrite(const fuse_in_header& request, const fuse_write_in& in) {
        const std::string_view data(reinterpret_cast<const char*>(&in + 1), in.size);
        if (request.nodeid == kMarks) {
            recording_.events.push_back({Event::kMark, 0, 0, std::string(data.substr(0, data.find('\n')))});
        } else if (request.nodeid == kCut) {
            cut(recording_, std::string(data));
        } else if (request.nodeid >= kFirstDisk && isCut(request)) {
            recording_.disks[indexOf(request.nodeid)].cut.write(in.offset, data);
        } else if (request.nodeid >= kFirstDisk) {
            recording_.disks[indexOf(request.nodeid)].now.write(in.offset, data);
            recording_.events.push_back(
                {Event::kWrite, indexOf(request.nodeid), in.offset, std::string(data)});
        }
        fuse_write_out out{};
        out.size = in.size;
        reply(request, out);
    }

    static size_t indexOf(uint64_t node) { return (node - kFirstDisk) / 2; }
    static bool isCut(const fuse_in_header& request) { return (request.nodeid - kFirstDisk) % 2 == 1; }

    fuse_attr attributes(uint64_t node) const {
        fuse_attr attributes{};
        attributes.ino = node;
        attributes.mode = node == kDirectory ? S_IFDIR | 0700 : S_IFREG | 0600;
        attributes.size = node < kFirstDisk ? 0 : recording_.disks[indexOf(node)].size;
        attributes.nlink = 1;
        attributes.blksize = kBlockSize;
        return attributes;
    }

    void reply(const fuse_in_header& request, int error) const { send(request, error, nullptr, 0); }
    template <typename Out>
    void reply(const fuse_in_header& request, const Out& out) const {
        send(request, 0, &out, sizeof out);
    }
    void send(const fuse_in_header& request, int error, const void* data, size_t size) const {
        fuse_out_header header{static_cast<uint32_t>(sizeof header + size), -error, request.unique};
        const iovec parts[] = {{&header, sizeof header}, {const_cast<void*>(data), size}};
        if (writev(device_, parts, 2) < 0 && errno != ENOENT) {  // ENOENT: the asker was killed
            throw std::system_error(errno, std::generic_category(), "/dev/fuse");
        }
    }

    Recording& recording_;
    int device_;
    std::vector<std::string> names_;
};

}  // namespace

int main(int argc, char** argv) {
    try {
        Recording recording;
        for (int i = 2; i < argc; i++) {
            const std::string disk = argv[i];
            recording.disks.push_back(
                diskOf(disk.substr(0, disk.find('=')), disk.substr(disk.find('=') + 1)));
        }
        FileSystem(recording, argv[1]).serve();
        return 0;
    } catch (const std::exception& failure) {
        fprintf(stderr, "recording_disk: %s\n", failure.what());
        return 1;
    }
}
