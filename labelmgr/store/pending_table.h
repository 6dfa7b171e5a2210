#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "labelmgr/model/user_value.h"
#include "labelmgr/store/database.h"

// A record as it was before a change; without a value there was none.
struct FormerRecord {
    Target target;
    std::optional<UserValue> value;
};

// A file that a change writes to: the bytes of its label before and after it. No former
// bytes: there was no label.
struct PendingFile {
    std::string path;
    dev_t device = 0;
    ino_t inode = 0;
    std::optional<std::string> former;
    std::string wanted;

    bool operator==(const PendingFile& other) const = default;
};

using FilesToKeep = std::vector<const PendingFile*>;
FilesToKeep toKeep(const std::vector<PendingFile>& files);

// Many files as the bytes of one row: a row each costs a change of 100,000 files as much
// as writing their labels does. A file stands as that in which it differs from the one
// before it, its wanted label as that in which it differs from the former one. Throws
// BytesDamaged.
std::string packFiles(const FilesToKeep& files);
std::vector<PendingFile> unpackFiles(std::string_view bytes);

// The change under way: everything that is needed to take it back. It stands here from
// before the first label is written until all of them are on disk.
class PendingTable {
 public:
    explicit PendingTable(Database& in) : database(in) {}

    // Whether there is no change under way.
    bool isEmpty();
    void clear();

    // From here on the user values that this connection shows are those from before the
    // change, which stays as it is.
    void showFormerValues();

    // Labels of changes that were taken back but for these, which could not be put back
    // yet.
    bool hasLeftLabels();
    void setLeftLabels(const FilesToKeep& files);

    void add(const FormerRecord& record);
    std::vector<FormerRecord> records();

    void add(const FilesToKeep& files);
    // Those that are left, too.
    std::vector<PendingFile> files();
    std::optional<PendingFile> file(const std::string& path);

 private:
    void insert(const FilesToKeep& files, bool isLeft);
    template <typename Work>
    void forEachFile(Work work);

    Database& database;
};
