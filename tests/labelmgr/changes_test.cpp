// The label manager's operations, in this process.
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/label_manager.h"
#include "common/sm3_hash.h"
#include "labelmgr/files/pinned_file.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/store/store.h"
#include "tests/support/captured_log.h"
#include "tests/support/manager.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

namespace {

using namespace std::chrono_literals;

// A program in front of the others, for as long as the object lives.
struct Program {
    Program(const TemporaryTree& tree, const std::string& name, const std::string& script) {
        chmod(tree.file("bin/" + name, "#!/bin/sh\n" + script).c_str(), 0755);
        setenv("PATH", (tree.path("bin") + ":" + former).c_str(), 1);
    }
    ~Program() { setenv("PATH", former.c_str(), 1); }
    const std::string former = std::getenv("PATH");
};

struct Changes : testing::Test {
    const NothingSet nothingSet;
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
