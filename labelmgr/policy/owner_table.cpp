#include "labelmgr/policy/owner_table.h"

#include <algorithm>
#include <limits>
#include <sys/stat.h>

#include "labelmgr/model/operation_error.h"
#include "labelmgr/model/packed_bytes.h"

// The file: "zorvown" and the format's version, in all eight bytes; size of the front (4
// bytes); checksum of the front (8); the front: the source, then of each block size (4),
// checksum (8) and first directory; the blocks. A block: of each directory its path and,
// as one text, its entries, sorted by path; an entry: the name and the owner. Before each
// text stands its length (4).

namespace {

constexpr std::string_view kMagic("zorvown\2", 8);
constexpr size_t kStartSize = kMagic.size() + sizeof(uint32_t) + sizeof(uint64_t);
constexpr size_t kFullBlock = size_t{8} * 1024;
constexpr uint64_t kLargestPart = uint64_t{256} << 20;

[[noreturn]] void failAsDamaged() {
    throw OperationError("the kept list of owners", "damaged, or of another state of the packages");
}

std::string readAt(const UniqueFd& file, uint64_t offset, size_t size) {
    std::string bytes(size, '\0');
    if (pread(file.get(), bytes.data(), size, static_cast<off_t>(offset)) != static_cast<ssize_t>(size)) {
        failAsDamaged();
    }
    return bytes;
}

void writeAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0) {
            throw systemError("the kept list of owners");
        }
        bytes.remove_prefix(static_cast<size_t>(written));
    }
}

OwnedNames::Entries readEntries(std::string_view bytes) {
    OwnedNames::Entries entries;
    for (PackedReader reader(bytes); !reader.isAtEnd();) {
        const std::string_view name = reader.text();
        entries.emplace_back(name, reader.text());
    }
    return entries;
}

}  // namespace

std::string_view OwnedNames::ownerOf(std::string_view name) const {
    const auto found = std::lower_bound(entries.begin(), entries.end(), name,
                                        [](const auto& entry, auto wanted) { return entry.first < wanted; });
    return found != entries.end() && found->first == name ? found->second : std::string_view();
}

OwnerTable::OwnerTable(const OwnersByDirectory& owners) {
    std::vector<const OwnersByDirectory::value_type*> directories;
    directories.reserve(owners.size());
    for (const auto& directory : owners) {
        directories.push_back(&directory);
    }
    std::sort(directories.begin(), directories.end(),
              [](const auto* left, const auto* right) { return left->first < right->first; });
    std::string first;
    std::string bytes;
    for (const auto* directory : directories) {
        if (bytes.empty()) {
            first = directory->first;
        }
        std::string entries;
        for (const auto& [name, owner] : directory->second) {
            addText(entries, name);
            addText(entries, owner);
        }
        addText(bytes, directory->first);
        addText(bytes, entries);
        if (bytes.size() >= kFullBlock) {
            addBlock(std::exchange(first, {}), std::exchange(bytes, {}));
        }
    }
    if (!bytes.empty()) {
        addBlock(std::move(first), std::move(bytes));
    }
}

void OwnerTable::addBlock(std::string firstDirectory, std::string bytes) {
    if (bytes.size() > std::numeric_limits<uint32_t>::max()) {
        throw OperationError(firstDirectory, "more names than can be kept");
    }
    blocks.push_back({std::move(firstDirectory), 0, static_cast<uint32_t>(bytes.size()), checksumOf(bytes),
                      std::make_shared<const std::string>(std::move(bytes))});
}

OwnerTable::OwnerTable(UniqueFd openFile, const std::string& source) : file(std::move(openFile)) {
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        throw systemError("the kept list of owners");
    }
    const auto fileSize = static_cast<uint64_t>(status.st_size);
    const std::string start = readAt(file, 0, kStartSize);
    PackedReader numbers(std::string_view(start).substr(kMagic.size()));
    const auto frontSize = numbers.number<uint32_t>();
    if (start.compare(0, kMagic.size(), kMagic) != 0 || frontSize > std::min(fileSize, kLargestPart)) {
        failAsDamaged();
    }
    const std::string front = readAt(file, kStartSize, frontSize);
    PackedReader reader(front);
    if (numbers.number<uint64_t>() != checksumOf(front) || reader.text() != source) {
        failAsDamaged();
    }
    uint64_t offset = kStartSize + frontSize;
    while (!reader.isAtEnd()) {
        const auto size = reader.number<uint32_t>();
        const auto checksum = reader.number<uint64_t>();
        blocks.push_back({std::string(reader.text()), offset, size, checksum, nullptr});
        offset += size;
    }
    if (offset != fileSize) {
        failAsDamaged();
    }
}

void OwnerTable::write(int openFile, const std::string& source) const {
    std::string front;
    addText(front, source);
    for (const Block& block : blocks) {
        addNumber(front, block.size);
        addNumber(front, block.checksum);
        addText(front, block.firstDirectory);
    }
    std::string start(kMagic);
    addNumber(start, static_cast<uint32_t>(front.size()));
    addNumber(start, checksumOf(front));
    writeAll(openFile, start + front);
    for (Block& block : blocks) {
        writeAll(openFile, *bytesOf(block));
    }
}

OwnerTable::Bytes OwnerTable::bytesOf(Block& block) const {
    const std::lock_guard<std::mutex> lock(mutex);
    if (!block.bytes) {
        std::string bytes = readAt(file, block.offset, block.size);
        if (checksumOf(bytes) != block.checksum) {
            failAsDamaged();
        }
        block.bytes = std::make_shared<const std::string>(std::move(bytes));
    }
    return block.bytes;
}

OwnedNames OwnerTable::namesIn(const std::string& directory) const {
    auto block =
        std::upper_bound(blocks.begin(), blocks.end(), directory,
                         [](const auto& wanted, const auto& other) { return wanted < other.firstDirectory; });
    if (block == blocks.begin()) {
        return {};
    }
    const Bytes bytes = bytesOf(*--block);
    for (PackedReader reader(*bytes); !reader.isAtEnd();) {
        const std::string_view present = reader.text();
        const std::string_view entries = reader.text();
        if (present == directory) {
            return {readEntries(entries), bytes};
        }
    }
    return {};
}
