#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/handles.h"

// Which package owns which path, in a form that is searched without being read whole: the
// front says in which block the names of a directory are, and each block has its own
// checksum.

// The names of one directory, with the packages that own them.
class OwnedNames {
 public:
    // Sorted by name, of equal names the one that counts first.
    using Entries = std::vector<std::pair<std::string_view, std::string_view>>;

    OwnedNames() = default;
    OwnedNames(Entries sortedEntries, std::shared_ptr<const std::string> bytesOfTexts)
        : entries(std::move(sortedEntries)), bytes(std::move(bytesOfTexts)) {}

    // Empty when no package owns it.
    std::string_view ownerOf(std::string_view name) const;

 private:
    Entries entries;
    std::shared_ptr<const std::string> bytes;
};

using OwnersByDirectory = std::unordered_map<std::string, OwnedNames::Entries>;

// Any number of threads may search one table. What is damaged throws OperationError.
class OwnerTable {
 public:
    explicit OwnerTable(const OwnersByDirectory& owners);
    // A file that write() wrote with the same source. Its front is read, blocks are read
    // when a search comes to them.
    OwnerTable(UniqueFd openFile, const std::string& source);

    // The source says what the owners were read from.
    void write(int openFile, const std::string& source) const;

    OwnedNames namesIn(const std::string& directory) const;

 private:
    using Bytes = std::shared_ptr<const std::string>;
    struct Block {
        std::string firstDirectory;
        uint64_t offset;
        uint32_t size;
        uint64_t checksum;
        Bytes bytes;  // null when not read yet
    };

    void addBlock(std::string firstDirectory, std::string bytes);
    Bytes bytesOf(Block& block) const;

    UniqueFd file;
    mutable std::mutex mutex;  // of the blocks' bytes
    mutable std::vector<Block> blocks;
};
