#include "labelmgr/store/pending_table.h"

#include "labelmgr/model/packed_bytes.h"
#include "labelmgr/store/columns.h"

namespace {

constexpr size_t kFilesInRow = 500;
constexpr uint8_t kForm = 2;  // of a row's bytes; a row of another one is refused

std::string_view bytesOf(const std::optional<std::string>& label) {
    return label ? std::string_view(*label) : std::string_view();
}

}  // namespace

FilesToKeep toKeep(const std::vector<PendingFile>& files) {
    FilesToKeep kept;
    kept.reserve(files.size());
    for (const PendingFile& file : files) {
        kept.push_back(&file);
    }
    return kept;
}

std::string packFiles(const FilesToKeep& files) {
    std::string bytes;
    addNumber(bytes, kForm);
    const PendingFile none;
    const PendingFile* previous = &none;
    for (const PendingFile* file : files) {
        addTextLike(bytes, previous->path, file->path);
        addSmallNumber(bytes, uint64_t{file->device} ^ uint64_t{previous->device});
        addSmallNumber(bytes, uint64_t{file->inode} ^ uint64_t{previous->inode});
        addNumber(bytes, static_cast<uint8_t>(file->former ? 1 : 0));
        if (file->former) {
            addTextLike(bytes, bytesOf(previous->former), *file->former);
        }
        addTextLike(bytes, bytesOf(file->former), file->wanted);
        previous = file;
    }
    return bytes;
}

std::vector<PendingFile> unpackFiles(std::string_view bytes) {
    std::vector<PendingFile> files;
    PackedReader reader(bytes);
    if (reader.number<uint8_t>() != kForm) {
        throw BytesDamaged();
    }
    PendingFile previous;
    while (!reader.isAtEnd()) {
        PendingFile file;
        file.path = reader.textLike(previous.path);
        file.device = static_cast<dev_t>(reader.smallNumber() ^ uint64_t{previous.device});
        file.inode = static_cast<ino_t>(reader.smallNumber() ^ uint64_t{previous.inode});
        if (reader.number<uint8_t>() != 0) {
            file.former = reader.textLike(bytesOf(previous.former));
        }
        file.wanted = reader.textLike(bytesOf(file.former));
        if (files.size() == kFilesInRow) {  // so that few bytes cannot stand for much memory
            throw BytesDamaged();
        }
        files.push_back(file);
        previous = std::move(file);
    }
    return files;
}

bool PendingTable::isEmpty() {
    return database.number(
               "SELECT EXISTS(SELECT 1 FROM pending_record) OR EXISTS(SELECT 1 FROM pending_files WHERE "
               "is_left = 0)") == 0;
}

void PendingTable::clear() {
    database.execute("DELETE FROM pending_record");
    database.execute(hasLeftLabels() ? "DELETE FROM pending_files WHERE is_left = 0"
                                     : "DELETE FROM pending_files");  // all are dropped at once
}

void PendingTable::showFormerValues() {
    database.executeAll(R"(
CREATE TEMP TABLE user_value AS SELECT * FROM main.user_value AS present
    WHERE NOT EXISTS(SELECT 1 FROM pending_record AS former WHERE former.field = present.field
        AND former.is_pattern = present.is_pattern AND former.target = present.target);
INSERT INTO temp.user_value(set_order, field, is_pattern, target, package, file, path)
    SELECT previous_order, field, is_pattern, target, package, file, path FROM pending_record
    WHERE previous_order != 0)");
}

bool PendingTable::hasLeftLabels() {
    return database.number("SELECT EXISTS(SELECT 1 FROM pending_files WHERE is_left = 1)") != 0;
}

void PendingTable::setLeftLabels(const FilesToKeep& files) {
    database.execute("DELETE FROM pending_files WHERE is_left = 1");
    insert(files, true);
}

void PendingTable::add(const FormerRecord& record) {
    Statement statement = database.prepare(
        "INSERT INTO pending_record(field, is_pattern, target, package, file, path, previous_order)"
        " VALUES(?, ?, ?, ?, ?, ?, ?)");
    const UserValue former = record.value.value_or(UserValue{fieldValueOf(record.target.field, {}), 0});
    bindValue(bindTarget(statement, record.target), former.value).bind(former.order).run();
}

std::vector<FormerRecord> PendingTable::records() {
    Statement statement = database.prepare(
        "SELECT field, is_pattern, target, previous_order, package, file, path FROM pending_record"
        " ORDER BY id");
    std::vector<FormerRecord> records;
    while (statement.step()) {
        FormerRecord record{readTarget(statement, 0), std::nullopt};
        if (statement.integer(3) != 0) {
            record.value = readUserValue(statement, 3, record.target.field);
        }
        records.push_back(std::move(record));
    }
    return records;
}

void PendingTable::add(const FilesToKeep& files) {
    insert(files, false);
}

void PendingTable::insert(const FilesToKeep& files, bool isLeft) {
    Statement statement =
        database.prepare("INSERT INTO pending_files(files, checksum, is_left) VALUES(?, ?, ?)");
    for (auto next = files.begin(); next != files.end();) {
        const auto end = next + std::min<ptrdiff_t>(kFilesInRow, files.end() - next);
        const std::string bytes = packFiles({next, end});
        statement.bind(bytes).bind(toStored(checksumOf(bytes))).bind(isLeft ? 1 : 0).run();
        next = end;
    }
}

template <typename Work>
void PendingTable::forEachFile(Work work) {
    Statement statement = database.prepare("SELECT files, checksum FROM pending_files ORDER BY id");
    try {
        while (statement.step()) {
            const std::string bytes = statement.bytes(0);
            if (checksumOf(bytes) != fromStored(statement.integer(1))) {
                throw BytesDamaged();  // one bad byte of a path would lead all after it astray
            }
            for (PendingFile& file : unpackFiles(bytes)) {
                work(file);
            }
        }
    } catch (const BytesDamaged&) {
        database.failAsDamaged("the list of files of a change under way");
    }
}

std::vector<PendingFile> PendingTable::files() {
    std::vector<PendingFile> files;
    forEachFile([&](PendingFile& file) { files.push_back(std::move(file)); });
    return files;
}

std::optional<PendingFile> PendingTable::file(const std::string& path) {
    std::optional<PendingFile> found;
    forEachFile([&](PendingFile& file) {
        if (!found && file.path == path) {
            found = std::move(file);
        }
    });
    return found;
}
