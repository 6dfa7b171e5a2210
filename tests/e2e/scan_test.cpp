#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/label_manager.h"
#include "label/label.h"
#include "tests/support/captured_log.h"
#include "tests/support/manager.h"
#include "tests/support/run.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

namespace {

// The kernel as it was before 6.13: no attribute calls by directory and name.
void withoutNewCalls() {
    sock_filter lines[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, 463, 0, 2), BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, 464, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog filter{std::size(lines), lines};
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
        _exit(126);
    }
}

}  // namespace

TEST(Scan, LabelsEveryKindOfFileAndNothingTwice) {
    TemporaryTree tree;
    for (const std::string_view name : {"file", "new\nline \xff", "skip/in", "d/e/f"}) {
        tree.file(name);
    }
    tree.file(std::string(255, 'n'));
    tree.link("d/dangling", "nowhere");
    ASSERT_EQ(mkfifo(tree.path("fifo").c_str(), 0600), 0);
    ASSERT_EQ(mount("plain", tree.directory("plain").c_str(), "ramfs", 0, nullptr), 0);
    tree.file("plain/below/file");
    ASSERT_EQ(mount("closed", tree.directory("closed").c_str(), "tmpfs", MS_RDONLY, nullptr), 0);
    putFile(kLogProperties, "log4cpp.rootCategory=INFO\n");
    CapturedLog log;
    ASSERT_EQ(setFileTid(tree.path("d/e/f").c_str(), 0x21, 0), 0);
    ASSERT_EQ(setFileTid((tree.path() + "/fi*").c_str(), 0x22, 1), 0);
    const auto done =
        testing::StartsWith("INFO [logDone] set_tid " + tree.path() + "/fi* 00000022, files: 2; by user 0");
    EXPECT_THAT(log.take(), testing::Contains(done).Times(1));
    std::filesystem::remove(tree.path("file"));
    tree.file("file");

    for (const char* threads : {"1", "4"}) {
        setenv("ZORV_LABEL_THREADS", threads, 1);
        EXPECT_EQ(addTagFullSystem(tree.path().c_str(), {tree.path("skip")}), 0);
        Lines lines = log.take();
        lines.back() = replaceAll(lines.back(), ", [0-9.]+ seconds;.*", "");
        const std::string counts =
            *threads == '1' ? ": 9 labelled, 0 unchanged" : ": 0 labelled, 9 unchanged";
        EXPECT_EQ(lines.back(), "INFO [labelWholeTree] " + tree.path() + counts + ", 0 failed");
        EXPECT_THAT(lines, testing::IsSupersetOf(
                               {"WARN [warnOfFileSystem] " + tree.path("plain") +
                                    ": the file system has no attributes for labels and is left alone",
                                "WARN [warnOfFileSystem] " + tree.path("closed") +
                                    ": it lies on a read-only mount and is left alone"}));
    }
    umount2(tree.path("plain").c_str(), MNT_DETACH);
    lremovexattr(tree.path("d/dangling").c_str(), kLabelAttribute);
    lremovexattr(tree.path("d/e/f").c_str(), kLabelAttribute);
    EXPECT_EQ(runTool({"-a", "-s", tree.path("d")}, {.prepare = withoutNewCalls}).status, 0);
    EXPECT_EQ(getLabelSetStatus(), 2);
    EXPECT_EQ(labelAttribute(tree.path("skip")) + labelAttribute(tree.path("skip/in")), "nonenone");
    EXPECT_EQ(labelAttribute(tree.path("d/dangling")).size(), 41U * 2);
    EXPECT_EQ(tidOf(tree.path("file")), 0x22U);
    EXPECT_EQ(tidOf(tree.path("fifo")), 0x22U);
    EXPECT_EQ(tidOf(tree.path("d/e/f")), 0x21U);
    EXPECT_NE(addTagFullSystem(tree.path("file").c_str(), {}), 0);
    EXPECT_NE(addTagFullSystem("/proc", {}), 0);
}

// Every file has the label that restoring it alone gives, though a labelling looks its
// rules up in another way.
TEST(Scan, AgreesWithRestore) {
    constexpr const char* kRoot = "/usr/share/dpkg";  // whose files belong to a package
    constexpr const char* kPolicy =
        "[tid]\n*/a* = 1\n/usr/* = 2\n/usr/share/dpkg/b* = 3\n/usr/share/dpkg/?b* = 4\n"
        "/usr/share/dpkg/ab = 5\n/usr/share/dpkg/*b?a = 6\n"
        "[inherit_flag]\n/usr/share/dpk?/* = 5\n/usr/share/dpkg/b/b/* = 7\n";
    ASSERT_EQ(mount("files", kRoot, "tmpfs", 0, nullptr), 0);
    putFile(std::getenv("ZORV_LABEL_POLICY_FILE"), kPolicy);
    Lines paths;
    for (const char* name : {"", "/a", "/b", "/a/a", "/b/b", "/b/b/a", "/b/b/a/b"}) {
        const std::string directory = std::string(kRoot) + name;
        std::filesystem::create_directory(directory);
        paths.push_back(directory);
        for (const char* file : {"/ab", "/ba", "/aba", "/cputable"}) {
            putFile(directory + file, "");
            chmod((directory + file).c_str(), file[1] == 'a' ? 0755 : 0644);
            paths.push_back(directory + file);
        }
    }

    const ZORV_ID id{1, 2, 3};
    int failures = setPkgId("dpkg", 0xd) + setFileTid("/usr/share/dpkg/b/ba", 0x20, 0);
    failures += setFileTid("/usr/share/dpkg*a?", 0x21, 1) + setFileTid("/usr/share/dpkg/b/*", 0x22, 1);
    failures += setFileOid("/usr/share/dpkg/?/?/*b", 1, id) + setFileSid("/usr/share/dpkg/a/aba", 0, id);
    failures += setFileSid("/usr/share/dpkg/a*", 1, id) + setFileInheritFlag("/usr/share/dpkg/*table", 0, 1);
    EXPECT_EQ(failures, 0);

    ASSERT_EQ(addTagFullSystem(kRoot, {}), 0);
    for (const std::string& path : paths) {
        const std::string scanned = labelAttribute(path);
        EXPECT_NE(restoreSingleFileLabel(path), "");
        EXPECT_EQ(scanned, labelAttribute(path)) << path;
    }
    std::filesystem::remove_all(std::getenv("ZORV_LABEL_STATE_DIR"));
    std::filesystem::remove(std::getenv("ZORV_LABEL_POLICY_FILE"));
    umount2(kRoot, MNT_DETACH);
}

TEST(Scan, NeverLeavesItsRoot) {
    TemporaryTree tree;
    const WithoutPackages without;  // many labellings need not ask as many times
    for (int i = 0; i < 20; ++i) {
        tree.file("outside/d/f" + std::to_string(i));
        tree.file("root/d/f" + std::to_string(i));
    }
    tree.link("root/d.swap", tree.path("outside/d"));
    tree.link("root/d/f0.swap", tree.path("outside/d/f0"));
    std::jthread swapper([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            for (const char* name : {"root/d", "root/d/f0"}) {
                const std::string path = tree.path(name);
                renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, (path + ".swap").c_str(), RENAME_EXCHANGE);
            }
        }
    });
    for (int i = 0; i < 100; ++i) {
        addTagFullSystem(tree.path("root").c_str(), {});
    }
    swapper = {};
    for (const auto& entry : std::filesystem::recursive_directory_iterator(tree.path("outside"))) {
        EXPECT_EQ(labelAttribute(entry.path()), "none") << entry.path();
    }
}

// Values set and cleared while a labelling runs hold after it, whether it ends or is
// killed.
TEST(Scan, GivesWayToChangesMadeMeanwhile) {
    constexpr size_t kFiles = 3000;
    TemporaryTree tree;
    const WithoutPackages without;
    std::vector<std::string> files;
    for (size_t i = 0; i < kFiles; ++i) {
        files.push_back(tree.file("d" + std::to_string(i % 30) + "/f" + std::to_string(i)));
    }
    int interrupted = 0;
    std::vector<uint32_t> tids(kFiles);
    for (uint32_t round = 1; round <= 40; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            _exit(addTagFullSystem(tree.path().c_str(), {}) == 0 ? 0 : 1);
        }
        while (getLabelSetStatus() != 1 && waitpid(child, nullptr, WNOHANG) == 0) {
            std::this_thread::yield();
        }
        for (const size_t number : {size_t{round}, size_t{round} + 1000, kFiles - round}) {
            tids[number] = round;
            ASSERT_EQ(setFileTid(files[number].c_str(), tids[number], 0), 0);
        }
        if (round % 8 == 0) {
            tids.assign(kFiles, 0);
            ASSERT_EQ(clearFileTid(), 0);
        }
        if (round % 2 == 1) {
            kill(child, SIGKILL);
        }
        waitpid(child, nullptr, 0);
        interrupted += getLabelSetStatus() == 3 ? 1 : 0;
        UserSetRecord* records = nullptr;
        ASSERT_GE(showUserSetFileTid(&records), 0);  // the next command ends what a kill left
        std::free(records);
        for (size_t i = 0; i < kFiles; ++i) {
            Label label;
            label.getFromXattr(files[i], false);
            ASSERT_EQ(label.tid_, tids[i]) << files[i] << ' ' << round;
        }
    }
    EXPECT_GT(interrupted, 0);
}
