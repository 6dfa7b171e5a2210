// The store: full and read-only disks, other versions and users, changes that died.
#include "labelmgr/store/store.h"

#include <cstdlib>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "cli/label_manager.h"
#include "labelmgr/files/pinned_file.h"
#include "labelmgr/port/process_context.h"
#include "tests/support/captured_log.h"
#include "tests/support/manager.h"
#include "tests/support/run.h"
#include "tests/support/temporary_tree.h"

namespace {

struct Stores : testing::Test {
    const NothingSet nothingSet;
    const TemporaryTree tree;
};

}  // namespace

// The state directory on a disk of its own, with blocks of one kilobyte and of four.
TEST_F(Stores, OutliveAFullAndAReadOnlyDisk) {
    const std::string file = tree.file("file");
    for (const char* blockSize : {"1024", "4096"}) {
        const SmallDisk disk(stateDirectory(), std::string("-O ^has_journal -b ") + blockSize);
        ASSERT_EQ(setFileTid(file.c_str(), 1, 0), 0);
        shell("dd if=/dev/zero of=" + stateDirectory() + "/full bs=1k 2>/dev/null; [ -f " + stateDirectory() +
              "/full ]");
        const RunResult full = runInChild([&] {
            CapturedLog log;
            return setFileTid(file.c_str(), 2, 0) == 0 ? 0 : static_cast<int>(log.takeErrors().size());
        });
        EXPECT_EQ(full.status, 1) << blockSize;  // no signal, and one line
        EXPECT_EQ(listedTids() + std::to_string(tidOf(file)), file + "=11");
        shell("rm " + stateDirectory() + "/full");
        const std::string database = stateDirectory() + "/label.db";
        for (const std::string& journal :
             {"[ -s " + database + "-wal ]",
              "sqlite3 " + database + " 'PRAGMA wal_checkpoint' >/dev/null; ! [ -e " + database + "-wal ]"}) {
            shell("mount -o remount,rw " + stateDirectory() + " && " + journal + " && mount -o remount,ro " +
                  stateDirectory());
            EXPECT_NE(setFileTid(file.c_str(), 2, 0), 0);
            EXPECT_EQ(listedTids() + std::to_string(tidOf(file)), file + "=11") << journal;
        }
    }
}

TEST_F(Stores, LeaveNewerStoresAndTakeOverOlderOnes) {
    const std::string file = tree.file("file");
    ASSERT_EQ(setFileTid(file.c_str(), 1, 0), 0);
    const std::string database = stateDirectory() + "/label.db";
    shell("sqlite3 " + database + " 'PRAGMA user_version = 99'");
    const std::string before = fileContent(database);
    CapturedLog log;
    EXPECT_NE(setFileTid(file.c_str(), 2, 0), 0);
    EXPECT_EQ(listedTids(), "failed");
    EXPECT_EQ(log.take().front(),
              "ERROR [setFileTid] " + database + ": refused: written by a newer version of this library");
    EXPECT_EQ(fileContent(database), before);

    // A store of the first version whose process died with a set of 9 under way.
    shell("sqlite3 " + database +
          " \"PRAGMA user_version = 1; DROP TABLE pending_record; DROP TABLE pending_files;"
          " CREATE TABLE pending_change(id INTEGER PRIMARY KEY, operation BLOB NOT NULL,"
          " field INTEGER NOT NULL, is_pattern INTEGER NOT NULL, target BLOB NOT NULL,"
          " previous_order INTEGER NOT NULL, package INTEGER NOT NULL, file INTEGER NOT NULL,"
          " path INTEGER NOT NULL) STRICT;"
          " INSERT INTO pending_change SELECT 1, X'00', field, 0, target, 1, 1, 0, 0 FROM user_value;"
          " UPDATE user_value SET package = 9, set_order = 2\"");
    setLabelAttribute(file, std::string(48, '0') + "0900000020");
    EXPECT_EQ(listedTids() + std::to_string(tidOf(file)), file + "=11");

    // One of the second, whose process died with the label of such a set written.
    const std::string former = labelAttribute(file);
    struct stat status {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    shell("sqlite3 " + database +
          " \"PRAGMA user_version = 2; DROP TABLE pending_files;"
          " CREATE TABLE pending_file(id INTEGER PRIMARY KEY, path BLOB NOT NULL, device INTEGER NOT NULL,"
          " inode INTEGER NOT NULL, former BLOB, wanted BLOB NOT NULL, is_left INTEGER NOT NULL) STRICT;"
          " INSERT INTO pending_file SELECT 1, target, " +
          std::to_string(status.st_dev) + ", " + std::to_string(status.st_ino) + ", X'" + former +
          "', X'AB', 0 FROM user_value\"");
    EXPECT_EQ(Store::openToRead(stateDirectory())->pending().file(file)->wanted, "\xAB");
    setLabelAttribute(file, "AB");
    EXPECT_EQ(listedTids() + std::to_string(tidOf(file)), file + "=11");
}

TEST_F(Stores, ReadBesideAWriter) {
    const std::string file = tree.file("file");
    ASSERT_EQ(setFileTid(file.c_str(), 1, 0), 0);
    Store writer = Store::openToWrite(stateDirectory());
    {
        Transaction transaction = writer.begin();
        writer.userValues().set({Field::kTid, false, file}, uint32_t{2});
        writer.pending().add(FormerRecord{{Field::kTid, false, file}, UserValue{uint32_t{1}, 1}});
        EXPECT_EQ(listedTids(), file + "=1");
        transaction.commit();
    }
    EXPECT_EQ(listedTids(), file + "=1");  // not told yet
    CapturedLog log;
    std::thread([&] { EXPECT_NE(setFileTid(file.c_str(), 3, 0), 0); }).join();
    EXPECT_THAT(log.take(), testing::ElementsAre("ERROR [setFileTid] " + stateDirectory() +
                                                 "/label.lock: another change holds the store: process " +
                                                 std::to_string(getpid())));
}

// Whoever reads the database with SQLite's own locks would put the journal away at its
// end.
TEST_F(Stores, KeepWhatIsToldFromOtherPrograms) {
    const std::string file = tree.file("file");
    ASSERT_EQ(setFileTid(file.c_str(), 1, 0), 0);
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open((stateDirectory() + "/label.db").c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "SELECT * FROM user_value", nullptr, nullptr, nullptr), SQLITE_OK);
    const bool isTold = setFileTid(file.c_str(), 2, 0) == 0;
    EXPECT_EQ(listedTids(), file + (isTold ? "=2" : "=1"));
    sqlite3_close(other);
    EXPECT_EQ(listedTids() + std::to_string(tidOf(file)), file + (isTold ? "=22" : "=11"));
    EXPECT_EQ(setFileTid(file.c_str(), 3, 0), 0);
    EXPECT_EQ(listedTids(), file + "=3");
}

// What cannot be put back now is put back when that can be done.
TEST_F(Stores, WaitForLabelsThatCannotBePutBack) {
    tree.file("mounted/f");
    ASSERT_EQ(mount("files", tree.path("mounted").c_str(), "tmpfs", 0, nullptr), 0);
    const std::string file = tree.file("mounted/f");
    ASSERT_EQ(setFileTid(file.c_str(), 1, 0), 0);
    {
        const PinnedFile pin(processContext(), file);
        Store store = Store::openToWrite(stateDirectory());  // a change that dies with its label written
        Transaction transaction = store.begin();
        const PendingFile pending{file, pin.device(), pin.inode(), pin.label(),
                                  "of a change that was not told"};
        store.pending().add(FilesToKeep{&pending});
        transaction.commit();
        pin.setLabel("of a change that was not told");
    }
    const std::string turnChecksum =
        "sqlite3 " + stateDirectory() + "/label.db 'UPDATE pending_files SET checksum = ~checksum'";
    shell(turnChecksum);
    CapturedLog log;
    EXPECT_NE(setFileTid(tree.file("other").c_str(), 1, 0), 0);
    EXPECT_THAT(log.take(), testing::Contains(testing::HasSubstr("damaged: the list of files of a change")));
    shell(turnChecksum);
    const std::string aside = tree.directory("aside");
    ASSERT_EQ(mount(tree.path("mounted").c_str(), aside.c_str(), nullptr, MS_MOVE, nullptr), 0);
    EXPECT_EQ(listedTids(), file + "=1");
    EXPECT_EQ(setPkgId("other", 1), 0);
    ASSERT_EQ(mount(aside.c_str(), tree.path("mounted").c_str(), nullptr, MS_MOVE, nullptr), 0);
    EXPECT_EQ(tidOf(file), 1U);
    EXPECT_EQ(labelAttribute(file).substr(48), "0100000020");
    umount2(tree.path("mounted").c_str(), MNT_DETACH);
}
