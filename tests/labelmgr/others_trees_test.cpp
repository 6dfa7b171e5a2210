// Trees that others may write to, with whatever they put there.
#include <array>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/handles.h"
#include "cli/label_manager.h"
#include "tests/support/captured_log.h"
#include "tests/support/manager.h"
#include "tests/support/run.h"
#include "tests/support/silent_server.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

using testing::HasSubstr;

// Files of one name after the other: what is written goes to the file that was read.
TEST(OthersTrees, KeepTheLabelsOfExchangedFilesApart) {
    const TemporaryTree tree;
    const WithoutPackages without;
    const std::string names[] = {tree.file("a"), tree.file("b")};
    const UniqueFd files[] = {UniqueFd(open(names[0].c_str(), O_RDONLY)),
                              UniqueFd(open(names[1].c_str(), O_RDONLY))};
    setLabelAttribute(names[0], "01" + std::string(48, '0'));
    setLabelAttribute(names[1], "02" + std::string(48, '0'));
    std::atomic<bool> isEnded = false;
    std::atomic<int> exchanges = 0;
    std::thread exchanger([&] {
        for (; !isEnded; ++exchanges) {
            renameat2(AT_FDCWD, names[0].c_str(), AT_FDCWD, names[1].c_str(), RENAME_EXCHANGE);
        }
    });
    for (uint32_t i = 0; i < 300; ++i) {
        setFileTid(names[i % 2].c_str(), i, 0);
        setFileTid((tree.path() + "/?").c_str(), i, 1);
    }
    isEnded = true;
    exchanger.join();
    for (int i = 0; i < 2; ++i) {
        std::array<unsigned char, 81> label{};
        EXPECT_GT(fgetxattr(files[i].get(), "security.zorv", label.data(), label.size()), 0);
        EXPECT_EQ(label[0], i + 1) << exchanges;
    }
    clearFileTid();
}

// A user's file whose attribute space is full costs one line, not the pattern, and so
// does a read-only mount of a part of it.
TEST(OthersTrees, HaveNoVeto) {
    const TemporaryTree tree;
    const WithoutPackages without;
    const SmallDisk disk(tree.path("mounted"), "-b 4096 -I 128");
    const std::string full = tree.file("mounted/full");
    const std::string other = tree.file("mounted/other");
    const std::string filler(4000, 'x');
    require(setxattr(full.c_str(), "user.filler", filler.data(), filler.size(), 0) == 0, full);
    const std::string pattern = disk.mountPoint + "/*";
    const std::string fixed = tree.directory("mounted/fixed");
    for (const unsigned int flags : {0U | MS_BIND, 0U | MS_BIND | MS_REMOUNT | MS_RDONLY}) {
        require(mount(fixed.c_str(), fixed.c_str(), nullptr, flags, nullptr) == 0, fixed);
    }

    CapturedLog log;
    EXPECT_NE(setFileTid(pattern.c_str(), 5, 1), 0);  // tells it
    EXPECT_THAT(log.takeErrors(),
                testing::ElementsAre(HasSubstr(fixed + ": Read-only file system"),
                                     HasSubstr(full + ": No space left on device"),
                                     HasSubstr(pattern + ": 2 of its files did not take it")));
    EXPECT_EQ(tidOf(other), 5U);
    umount2(fixed.c_str(), MNT_DETACH);
    UserSetRecord* records = nullptr;
    EXPECT_EQ(showUserSetFileTid(&records), 1);
    std::free(records);
    EXPECT_NE(clearFileTid(), 0);
    EXPECT_EQ(tidOf(other), 0U);
    EXPECT_EQ(showUserSetFileTid(&records), 0);
    EXPECT_NE(setFileTid(full.c_str(), 6, 0), 0);  // of one path a failure is the failure
    EXPECT_EQ(showUserSetFileTid(&records), 0);
}

TEST(OthersTrees, AreWalkedWithinBounds) {
    const TemporaryTree tree;
    const WithoutPackages without;
    // A comb: at each level a directory that waits while the walk goes deeper.
    std::string path = tree.directory("comb");
    for (int level = 0; level < 100; ++level) {
        tree.file((path + "/side/file").substr(tree.path().size() + 1));
        path += "/d";
    }
    CapturedLog log;
    const RunResult few = runInChild([&] {
        const rlimit limit{40, 40};
        setrlimit(RLIMIT_NOFILE, &limit);
        return addTagFullSystem(tree.path("comb").c_str(), {}) == 0 ? 0 : 1;
    });
    EXPECT_EQ(few.status, 0);
    EXPECT_NE(labelAttribute(tree.path("comb/side/file")), "none");

    // A chain deeper than any path.
    require(chdir(tree.directory("chain").c_str()) == 0, "chain");
    const std::string name(200, 'd');
    for (int level = 0; level < 40; ++level) {
        require(mkdir(name.c_str(), 0700) == 0 && chdir(name.c_str()) == 0, name);
    }
    require(chdir("/") == 0, "/");
    EXPECT_NE(addTagFullSystem(tree.path("chain").c_str(), {}), 0);
    EXPECT_THAT(log.takeErrors(), testing::ElementsAre(HasSubstr("File name too long")));
    EXPECT_NE(labelAttribute(tree.path("chain/" + name + "/" + name)), "none");
}

TEST(OthersTrees, MayNeverAnswer) {
    const TemporaryTree tree;
    for (const std::string& name : {std::string("file"), std::string("directory")}) {
        const std::string other = tree.file(name + "-tree/other");
        const std::string silent = tree.path(name + "-tree/silent");
        name == "file" ? tree.file(name + "-tree/silent") : tree.directory(name + "-tree/silent");
        std::atomic<int> done = 0;
        bool isHung = false;
        std::thread work;
        {
            const SilentServer server(silent);
            work = std::thread([&] {
                const RunResult run = runInChild([&] {
                    setenv("PATH", "/nonexistent", 1);
                    int failures = setFileTid(silent.c_str(), 1, 0) != 0 ? 0 : 1;
                    failures += restoreSingleFileLabel(silent + "/below").empty() ? 0 : 2;
                    failures += setFileTid((tree.path() + "/*-tree/*").c_str(), 2, 1) == 0 ? 0 : 4;
                    failures += addTagFullSystem(tree.path(name + "-tree").c_str(), {}) == 0 ? 0 : 8;
                    failures += clearFileTid() == 0 ? 0 : 16;
                    return failures;
                });
                EXPECT_EQ(run.status, 0) << name << run.err;
                done = 1;
            });
            for (int i = 0; i < 500 && done == 0; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
            isHung = done == 0;
        }  // lets go whoever waits
        work.join();
        EXPECT_FALSE(isHung) << name;
        EXPECT_NE(labelAttribute(other), "none");
        EXPECT_EQ(labelAttribute(silent), "none");
    }
}

TEST(OthersTrees, HoldNoStoreAndNoPolicy) {
    const TemporaryTree tree;
    const std::string file = tree.file("file");
    const std::string former = std::getenv("ZORV_LABEL_STATE_DIR");
    setenv("ZORV_LABEL_STATE_DIR", tree.path("open/sub/state").c_str(), 1);
    chmod(tree.directory("open").c_str(), 0777);
    CapturedLog log;
    EXPECT_NE(setFileTid(file.c_str(), 1, 0), 0);
    EXPECT_THAT(log.takeErrors(),
                testing::ElementsAre(HasSubstr(tree.path("open") + ": refused: writable by others")));
    chmod(tree.path("open").c_str(), 01777);
    EXPECT_EQ(setFileTid(file.c_str(), 1, 0), 0);
    setenv("ZORV_LABEL_STATE_DIR", former.c_str(), 1);
}
