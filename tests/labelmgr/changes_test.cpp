// The label manager's operations, in this process.
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "cli/label_manager.h"
#include "common/sm3_hash.h"
#include "labelmgr/files/pinned_file.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/port/process_context.h"
#include "labelmgr/store/store.h"
#include "tests/support/captured_log.h"
#include "tests/support/manager.h"
#include "tests/support/run.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

namespace {

using namespace std::chrono_literals;

std::string stateDirectory() {
    return std::getenv("ZORV_LABEL_STATE_DIR");
}

// "TARGET=VALUE", blanks between, of all TIDs that users set; "failed".
std::string listedTids() {
    UserSetRecord* records = nullptr;
    const int count = showUserSetFileTid(&records);
    std::string list = count < 0 ? "failed" : "";
    for (int i = 0; i < count; ++i) {
        list +=
            (i > 0 ? " " : "") + std::string(records[i].path) + "=" + std::to_string(records[i].values[0]);
    }
    std::free(records);
    return list;
}

// A program in front of the others, for as long as the object lives.
struct Program {
    Program(const TemporaryTree& tree, const std::string& name, const std::string& script) {
        chmod(tree.file("bin/" + name, "#!/bin/sh\n" + script).c_str(), 0755);
        setenv("PATH", (tree.path("bin") + ":" + former).c_str(), 1);
    }
    ~Program() { setenv("PATH", former.c_str(), 1); }
    const std::string former = std::getenv("PATH");
};

class Changes : public testing::Test {
 protected:
    Changes() { std::filesystem::remove_all(stateDirectory()); }
    ~Changes() override {
        std::filesystem::remove_all(stateDirectory());
        std::filesystem::remove(std::getenv("ZORV_LABEL_POLICY_FILE"));
    }

    const TemporaryTree tree;
};

bool hasNotifications = true;

}  // namespace

// In place of the C library's: a user may have only so many.
int inotify_init1(int flags) noexcept {
    if (!hasNotifications) {
        errno = EMFILE;
        return -1;
    }
    return static_cast<int>(syscall(SYS_inotify_init1, flags));
}

TEST_F(Changes, TellTheNextCommandTheTruth) {
    const std::string file = tree.file("d/file");
    const std::string pattern = tree.path() + "/d/*";
    void* listener = createSubscriber();
    ASSERT_EQ(subscribeLabelChangeMsg(listener, ""), 0);
    EXPECT_EQ(setFileTid(file.c_str(), 1, 0) + setFileTid(file.c_str(), 1, 0) + setPkgId("end", 1), 0);
    for (int i = 0; i < 2; ++i) {  // the present value is told, too
        EXPECT_EQ(nextMessage(listener), "file set_tid " + file + " 00000001");
    }
    struct stat status {};
    ASSERT_EQ(stat(stateDirectory().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700U);

    ASSERT_EQ(setFileTid(pattern.c_str(), 2, 1) + setFileTid((tree.path() + "/d/f*").c_str(), 3, 1), 0);
    ASSERT_EQ(delFileTid(file.c_str(), 0), 0);
    EXPECT_EQ(tidOf(file), 3U);
    ASSERT_EQ(setFileTid(pattern.c_str(), 4, 1), 0);  // now it is the last
    EXPECT_EQ(tidOf(file), 4U);
    EXPECT_NE(restoreSingleFileLabel(file), "");
    EXPECT_EQ(tidOf(file), 4U);
    ASSERT_EQ(clearFileTid(), 0);
    tree.link("way", "d");
    ASSERT_EQ(setFileTid((tree.path() + "/way/*").c_str(), 5, 1), 0);  // as its files are matched
    EXPECT_EQ(listedTids(), pattern + "=5");
    EXPECT_EQ(tidOf(file), 5U);
    ASSERT_EQ(delFileTid(pattern.c_str(), 1) + setFileTid(file.c_str(), 6, 0), 0);
    std::filesystem::remove(file);
    EXPECT_EQ(delFileTid(file.c_str(), 0), 0);
    EXPECT_EQ(listedTids(), "");

    EXPECT_NE(setFileInheritFlag(tree.file("g").c_str(), 8, 0), 0);
    EXPECT_EQ(labelAttribute(tree.path("g")), "none");
}

TEST_F(Changes, DeriveWhatFilesAndPackagesSay) {
    for (const mode_t bit : {0100U, 0010U, 0001U, 0400U}) {
        const std::string file = tree.file("executable");
        chmod(file.c_str(), bit);
        EXPECT_EQ(restoreSingleFileLabel(file).find(
                      ":0000000000000000-0000000000000000-0000000000000000:0:") == std::string::npos,
                  bit != 0400U)
            << bit;
    }
    const std::string policy = std::getenv("ZORV_LABEL_POLICY_FILE");
    putFile(policy, "[tid]\n" + tree.path() + "/* = 7\n");
    ASSERT_NE(restoreSingleFileLabel(tree.path("executable")), "");
    EXPECT_EQ(tidOf(tree.path("executable")), 7U);
    chmod(policy.c_str(), 0666);
    EXPECT_EQ(restoreSingleFileLabel(tree.path("executable")), "");
    std::filesystem::remove(policy);

    char* name = getPkgNameById(getSM3HashLast64Bits("dpkg"));
    EXPECT_STREQ(name, "dpkg");
    std::free(name);
    {
        const Program broken(tree, "dpkg-query", "exit 2\n");
        EXPECT_EQ(restoreSingleFileLabel(tree.path("executable")), "");
        EXPECT_NE(addTagFullSystem(tree.path().c_str(), {}), 0);
    }
    std::filesystem::remove(tree.path("bin/dpkg-query"));
    const std::string answer = R"([ "$1 $2" = "-qf --qf" ] && [ "$4 $5" = "-- )" + tree.path("executable") +
                               R"(" ] && echo "owner-by-rpm: ")";
    const Program rpm(tree, "rpm", answer + "\nexit 0\n");
    setenv("PATH", tree.path("bin").c_str(), 1);
    ASSERT_NE(restoreSingleFileLabel(tree.path("executable")), "");
    ZORV_ID oid{};
    EXPECT_EQ(getFileOid(tree.path("executable").c_str(), &oid), 0);
    EXPECT_EQ(oid.package, getSM3HashLast64Bits("owner-by-rpm"));

    for (const auto& module : std::filesystem::directory_iterator("/sys/module")) {
        uint64_t found = 0;
        EXPECT_EQ(getKernelModuleOid(module.path().filename().c_str(), &found), 0) << module;
        break;
    }
    std::map<std::string, std::map<std::string, std::vector<ZORV_ID>>> ids;
    tree.file("d/e/f");
    const std::string directory = tree.path("d");
    for (const auto& [kind, count] : std::map<std::string, size_t>{
             {"object_recurfile", 3}, {"subject_recurfile", 3}, {"object_file", 1}, {"subject_file", 1}}) {
        ASSERT_EQ(policies_parse({{kind, {directory}}}, ids), 0);
        EXPECT_EQ(ids[kind][directory].size(), count) << kind;
    }
}

// The state directory on a disk of its own, with blocks of one kilobyte and of four.
TEST_F(Changes, OutliveAFullAndAReadOnlyDisk) {
    const std::string file = tree.file("file");
    for (const char* blockSize : {"1024", "4096"}) {
        const SmallDisk disk(stateDirectory(), std::string("-O ^has_journal -b ") + blockSize);
        ASSERT_EQ(setFileTid(file.c_str(), 1, 0), 0);
        shell("dd if=/dev/zero of=" + stateDirectory() + "/full bs=1k 2>/dev/null; [ -f " + stateDirectory() +
              "/full ]");
        const RunResult full = runInChild([&] { return setFileTid(file.c_str(), 2, 0) == 0 ? 0 : 1; });
        EXPECT_EQ(full.status, 1) << blockSize;  // no signal
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

TEST_F(Changes, LeaveNewerStoresAndTakeOverOlderOnes) {
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

TEST_F(Changes, ReadBesideAWriter) {
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
TEST_F(Changes, KeepWhatIsToldFromOtherPrograms) {
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
TEST_F(Changes, WaitForLabelsThatCannotBePutBack) {
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

// A link does not widen a pattern.
TEST_F(Changes, RefuseDirectoriesThatWouldBeWildcards) {
    tree.file("x*y/file");
    const std::string secret = tree.file("xsecrety/file");
    tree.link("innocent", "x*y");
    EXPECT_NE(setFileTid((tree.path() + "/innocent/f?le").c_str(), 7, 1), 0);
    EXPECT_EQ(labelAttribute(secret), "none");
}

TEST_F(Changes, ReachListenersAtOnceAndInFull) {
    ASSERT_EQ(setPkgId("first", 1), 0);
    void* listener = createSubscriber();
    const auto listenTo = [&](int changes) {
        ASSERT_EQ(subscribeLabelChangeMsg(listener, ""), 0);
        for (int i = 0; i < changes; ++i) {
            std::thread change([] {
                std::this_thread::sleep_for(100ms);
                setPkgId("more", 1);
            });
            EXPECT_EQ(nextMessage(listener), "package set_id more 0000000000000001");
            change.join();
        }
    };
    hasNotifications = false;
    listenTo(1);
    hasNotifications = true;
    const auto begin = std::chrono::steady_clock::now();
    listenTo(5);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);  // the look of its own comes after one second

    Store store = Store::openToWrite(stateDirectory());
    const auto addMessages = [&](size_t count) {
        Transaction transaction = store.begin();
        FeedTable feed = store.feed();
        feed.trim();
        feed.add(Lines(count, "many"));
        transaction.commit();
    };
    {
        Transaction transaction = store.begin();  // nobody hears of what was taken back
        store.feed().withdraw(store.feed().last(), 2);
        transaction.commit();
    }
    addMessages(100500);  // of one change: all are kept
    EXPECT_EQ(nextMessage(listener), "many");
    addMessages(1);
    EXPECT_EQ(store.feed().after(0, 200000).size(), 100001U);
    addMessages(100500);
    addMessages(1);
    std::string last = "many";
    for (int i = 0; i < 2000 && last == "many"; ++i) {  // the next thousand at most are fetched already
        last = nextMessage(listener);
    }
    EXPECT_EQ(last, "failed");  // it fell behind
}

// Files are found component by component: no link that was swapped in leads elsewhere.
TEST_F(Changes, FollowNoLinkOnTheWay) {
    tree.file("real/file");
    tree.link("way", "real");
    EXPECT_THROW(pinPath(tree.path("way/file")), OperationError);
    EXPECT_NO_THROW(pinPath(tree.path("real/file")));
}

// A file system whose directories do not tell what their entries are.
TEST_F(Changes, FindFilesBelowEntriesOfUnknownType) {
    const SmallDisk disk(tree.path("mounted"), "-O ^filetype");
    const std::string mounted = disk.mountPoint;
    tree.file("mounted/a/b/file");
    const std::string pattern = mounted + "/*file";
    EXPECT_EQ(setFileTid(pattern.c_str(), 5, 1), 0);
    EXPECT_EQ(tidOf(mounted + "/a/b/file"), 5U);
    EXPECT_EQ(delFileTid(pattern.c_str(), 1), 0);
    EXPECT_EQ(tidOf(mounted + "/a/b/file"), 0U);
}

// A package database that takes its time holds up the scan that asks it, and nobody else.
TEST_F(Changes, GoOnWhileAScanAsks) {
    const std::string file = tree.file("root/file");
    ASSERT_EQ(mkfifo(tree.path("gate").c_str(), 0600), 0);
    const Program slow(tree, "dpkg-query", ": >" + tree.path("asked") + "\ncat " + tree.path("gate") + "\n");
    std::thread scan([&] { EXPECT_EQ(addTagFullSystem(tree.path("root").c_str(), {}), 0); });
    while (!std::filesystem::exists(tree.path("asked"))) {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(setFileTid(file.c_str(), 5, 0), 0);
    putFile(tree.path("gate"), "");
    scan.join();
    EXPECT_EQ(tidOf(file), 5U);
    EXPECT_EQ(getLabelSetStatus(), 2);
}

TEST_F(Changes, ScanOneTreeAtATimeAndNothingExcluded) {
    tree.file("root/d/file");
    ASSERT_EQ(mkfifo(tree.path("gate").c_str(), 0600), 0);
    const Program none(tree, "dpkg-query", "exit 0\n");
    putFile(std::getenv("ZORV_LABEL_POLICY_FILE"), "[exclude]\n" + tree.path() + "/roo? =\n");
    for (const char* root : {"root", "root/d"}) {
        EXPECT_EQ(addTagFullSystem(tree.path(root).c_str(), {}), 0);
        EXPECT_EQ(labelAttribute(tree.path(root)) + labelAttribute(tree.path("root/d/file")), "nonenone");
    }
    const auto directory = StateDirectory::open(stateDirectory(), StateDirectory::IfMissing::kCreate);
    const auto other = directory->lockForScan();
    ASSERT_TRUE(other.has_value());
    EXPECT_NE(addTagFullSystem(tree.path().c_str(), {}), 0);
    EXPECT_EQ(labelAttribute(tree.path("gate")), "none");
}
