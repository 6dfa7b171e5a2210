#include <fcntl.h>
#include <filesystem>
#include <map>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/handles.h"
#include "cli/label_walkers.h"
#include "cli/link_target.h"
#include "tests/support/captured_log.h"
#include "tests/support/run.h"
#include "tests/support/silent_server.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

namespace {

constexpr const char* kLog = "/var/log/zorv/walkers.log";

// A label with that OID package number and zeros.
void label(const std::string& path, char digit) {
    setLabelAttribute(path, std::string("0") + digit + std::string(48, '0'));
}

class Walkers : public testing::Test {
 protected:
    Walkers() {
        putFile(kLogProperties, "log4cpp.rootCategory=ERROR, file\n" + fileAppender("file", kLog));
        std::filesystem::remove(kLog);
    }

    // In words and texts "@" stands for the tree, and a line "2 @/f" for the one that
    // shows label 2 of @/f.
    std::string shortened(const std::string& text) const {
        const std::string zeros = "0{16}-0{16}";
        return replaceAll(
            replaceAll(text, tree.path(), "@"),
            "file: ([^:]*) label: 0{15}(.)-" + zeros + ":0:0{16}-" + zeros + ":0:0{16}-" + zeros, "$2 $1");
    }

    // Never a call of the label manager, never a failed status.
    void expectRun(const std::string& line, const std::string& out, const std::string& err) const {
        const Lines words = split(replaceAll(line, "@", tree.path()), " ");
        const RunResult run = runToolWithFake(words, "", {{{"HOME", tree.path()}}, {}});
        EXPECT_EQ(shortened(run.out), out.empty() ? "" : out + '\n') << line;
        EXPECT_EQ(shortened(run.err), err.empty() ? "" : err + '\n') << line;
        EXPECT_EQ(run.calls, "");
        EXPECT_EQ(run.status, 0);
    }

    const TemporaryTree tree;
};

// A tree "in" whose directory "d" can be exchanged for a link "l" that leads outside,
// where files of the same names have label 9.
class SwappedWalkers : public Walkers {
 protected:
    SwappedWalkers() {
        for (int i = 0; i < 30; ++i) {
            tree.file("in/d/e/f" + std::to_string(i));
            label(tree.file("out/e/f" + std::to_string(i)), '9');
        }
        tree.link("in/l", "../out");
    }

    void swap() const { renameat2(AT_FDCWD, directory.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE); }

    // Of the recursive removal or show of the tree, which must not reach outside.
    void expectNoVictim(const std::string& action, const std::function<void()>& prepare = {}) const {
        const RunResult run = runToolWithFake({"-H", "-R", action, "-l", tree.path("in")}, "",
                                              {{{"ASAN_OPTIONS", "detect_leaks=0"}}, prepare});
        EXPECT_THAT(shortened(run.out), testing::Not(testing::HasSubstr("9 @"))) << action;
        for (int i = 0; i < 30; ++i) {
            ASSERT_NE(labelAttribute(tree.path("out/e/f" + std::to_string(i))), "none") << action << i;
        }
    }

    const std::string directory = tree.path("in/d");
    const std::string link = tree.path("in/l");
};

// Has another process stop this one at its system calls from its first reading of a
// directory on, and act at one of them.
void actAtCall(int number, const std::function<void()>& act) {
    int ready[2];
    require(pipe2(ready, O_CLOEXEC) == 0);
    const pid_t traced = getpid();
    if (fork() != 0) {
        char byte = 0;
        require(read(ready[0], &byte, 1) == 1);
        return;
    }
    ptrace(PTRACE_SEIZE, traced, nullptr, PTRACE_O_TRACESYSGOOD);
    ptrace(PTRACE_INTERRUPT, traced, nullptr, nullptr);
    require(write(ready[1], "", 1) == 1);
    bool reads = false;
    for (int status = 0; waitpid(traced, &status, __WALL) == traced && WIFSTOPPED(status);) {
        __ptrace_syscall_info call{};
        ptrace(PTRACE_GET_SYSCALL_INFO, traced, sizeof(call), &call);
        if (call.op == PTRACE_SYSCALL_INFO_ENTRY) {
            reads = reads || call.entry.nr == SYS_getdents64;
            if (reads && number-- == 0) {
                act();
            }
        }
        ptrace(PTRACE_SYSCALL, traced, nullptr, nullptr);
    }
    _exit(0);
}

}  // namespace

TEST_F(Walkers, DoAsTheTableSays) {
    label(tree.file("b.conf"), '1');
    label(tree.file("a.conf"), '2');
    label(tree.link("link", "a.conf"), '3');
    label(tree.directory("dir"), '4');
    label(tree.directory("dir/%s\n"), '5');
    label(tree.link("dir/%s\n/up", ".."), '7');
    label(tree.link("dirlink", "dir"), '6');
    setLabelAttribute(tree.file("short"), "00");
    tree.link("dangling", "nowhere");
    constexpr const char* kTable = R"(
# words | standard output | standard error, in order: what is removed is missing afterwards
-g -l @/*.conf | 2 @/a.conf\n1 @/b.conf
-g -l ~/a.conf @/short @/nope* @/a.conf | 2 @/a.conf\nget file label failed, \n2 @/a.conf | Warning: No files matched the pattern: @/nope*
-g -l @/a.conf -R | | Warning: No files matched the pattern: -R
-g --label= | | Warning: No files matched the pattern: --label=
-g -l @/link @/a.conf | 2 @/link\n2 @/a.conf
--no-dereference -g -l @/link @/a.conf | 3 @/link\n2 @/a.conf
-g -l @/d* | 4 @/dir\n4 @/dirlink | Error: File or directory does not exist: @/dangling
-H -g -l @/d* | 4 @/dir\n6 @/dirlink | Error: File or directory does not exist: @/dangling
--recursive -g -l @/dir | 4 @/dir\n5 @/dir/%s\n\n4 @/dir/%s\n/up
-g -L @/dir/ | 4 @/dir/\n5 @/dir/%s\n\n4 @/dir/%s\n/up
-R -g -l @/dirlink @/a.conf | 4 @/dirlink\n5 @/dirlink/%s\n\n4 @/dirlink/%s\n/up\n2 @/a.conf
-R -H -g --dir-label @/dirlink | 6 @/dirlink\n5 @/dirlink/%s\n\n7 @/dirlink/%s\n/up
-d -l @/link | ================================
-H -g -l @/link @/a.conf | 3 @/link\nget file label failed,
-d -l @/link @/nope @/b.conf | ================================\nremove file label from xattr error, @/link lremovexattr failed, No data available | Warning: No files matched the pattern: @/nope
-H -d -l @/link | ================================
-H -R -d -l @/dir | ================================
-H -g -l @/link @/b.conf @/dir @/dir/* @/dirlink | get file label failed, \nget file label failed, \nget file label failed, \nget file label failed, \n6 @/dirlink
)";
    for (const Lines& cells : readTable(kTable, 3)) {
        expectRun(cells[0], replaceAll(cells[1], ",$", ", "), cells[2]);
    }
    EXPECT_EQ(
        replaceAll(shortened(fileContent(kLog)), ":[0-9]+\\]", "]"),
        "ERROR [getFromXattr] LabelError: Label deserialization failed: Buffer size is invalid: @/short\n");
}

TEST_F(Walkers, SurviveDepthBeyondPathsAndDescriptors) {
    const std::string name(200, 'd');
    label(tree.file("deep/last"), '2');
    ASSERT_EQ(chdir(tree.path("deep").c_str()), 0);
    for (int level = 0; level < 40; ++level) {
        ASSERT_EQ(mkdir(name.c_str(), 0700) + chdir(name.c_str()), 0);
    }
    ASSERT_EQ(chdir("/"), 0);
    for (const auto& [hard, reason] :
         std::map<rlim_t, std::string>{{16, "Too many open files"}, {64, "File name too long"}}) {
        const auto prepare = [most = hard] {
            const rlimit descriptors{16, most};
            setrlimit(RLIMIT_NOFILE, &descriptors);
        };
        const RunResult run = runToolWithFake({"-R", "-g", "-l", tree.path("deep")}, "", {{}, prepare});
        EXPECT_THAT(shortened(run.out), testing::ContainsRegex("/d+ opendir error: " + reason + "\n"));
        EXPECT_THAT(shortened(run.out), testing::HasSubstr("2 @/deep/last\n"));
        EXPECT_EQ(run.status, 0);
    }
}

TEST_F(Walkers, TellOfADirectoryReadInPart) {
    constexpr int kFiles = 3000;  // more than are read at once
    for (int i = 0; i < kFiles; ++i) {
        tree.file("dir/" + std::to_string(i));
    }
    const RunResult run = runInChild([&] {
        const int directory = dup(STDIN_FILENO);  // the number that it will have
        close(directory);
        int calls = 0;
        walkDirectory(tree.path("dir"), "", [&](const std::string&, const std::string&) {
            return ++calls == 2 ? close(directory) : 0;
        });
        return calls > 2 && calls < kFiles ? 0 : 1;
    });
    EXPECT_EQ(shortened(run.out), "@/dir opendir error: Bad file descriptor\n");
    EXPECT_EQ(run.status, 0);
}

TEST_F(Walkers, TellOnceThatTheLogIsNotConfigured) {
    std::filesystem::remove(kLogProperties);
    const std::string path = tree.file("f");
    label(path, '1');
    const std::string noConfig = std::string("Failed to open config file: ") + kLogProperties;
    expectRun("-g -l @/f", "read log config error.\n1 @/f", noConfig);
    // The label manager logs in the same process, through the same logger.
    const RunResult run = runTool({"-g", "-l", path, "-t", path});
    EXPECT_EQ(shortened(run.out + run.err),
              "read log config error.\n@/f tid:00000000\n1 @/f\n" + noConfig + '\n');
    // The log file, opened later, must not take the place of a closed output.
    for (const int closed : {STDOUT_FILENO, STDERR_FILENO}) {
        EXPECT_EQ(runTool({"-g", "-l", path, "/no"}, {{}, [closed] { close(closed); }}).status,
                  closed == STDOUT_FILENO ? 1 : 0);
    }
    EXPECT_EQ(fileContent("/var/log/zorv/zorv_label_manager.log"), "");
}

TEST_F(SwappedWalkers, StayInTheTreeWhateverIsExchanged) {
    std::jthread swapper([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            swap();
        }
    });
    for (int i = 0; i < 200 && !HasFailure(); ++i) {
        expectNoVictim(i % 2 == 0 ? "-g" : "-d");
    }
}

TEST_F(SwappedWalkers, StayInTheTreeAtEachSystemCall) {
    for (const char* action : {"-g", "-d"}) {
        int number = 0;
        for (bool wasSwapped = true; wasSwapped && !HasFailure(); ++number) {
            expectNoVictim(action, [&] { actAtCall(number, [&] { swap(); }); });
            wasSwapped = std::filesystem::is_symlink(directory);
            if (wasSwapped) {
                swap();
            }
        }
        EXPECT_GT(number, 30) << action;
    }
}

TEST_F(Walkers, LeaveAloneWhatMayNotAnswer) {
    label(tree.directory("t"), '1');
    label(tree.file("t/local"), '2');
    label(tree.link("t/to", tree.path("t/local")), '3');
    label(tree.link("t/into", tree.path("t/mount/none")), '4');
    tree.link("t/onto", "./../t/file");
    tree.link("t/twice", "onto");
    const SilentServer directory(tree.directory("t/mount"));
    const SilentServer file(tree.file("t/file"));
    constexpr const char* kTable = R"(
# words | lines in any order
-g | get file label failed, \nget file label failed, \nget file label failed, \nget file label failed, \n@/t/mount opendir error: Object is remote\n1 @/t\n2 @/t/local\n2 @/t/to
-H -g | get file label failed, \nget file label failed, \nget file label failed, \n@/t/mount opendir error: Object is remote\n1 @/t\n2 @/t/local\n3 @/t/to\n4 @/t/into
-H -d | ================================\n@/t/mount opendir error: Object is remote\nremove file label from xattr error, @/t/file lremovexattr failed, Object is remote\nremove file label from xattr error, @/t/onto lremovexattr failed, No data available\nremove file label from xattr error, @/t/twice lremovexattr failed, No data available
)";
    for (const Lines& cells : readTable(kTable, 2)) {
        const Lines words = split(cells[0] + " -R -l " + tree.path("t"), " ");
        const RunResult run = runToolWithFake(words, "", {{}, [] { alarm(5); }});
        EXPECT_THAT(split(shortened(run.out), "\n"),
                    testing::UnorderedElementsAreArray(split(cells[1] + "\n", "\n")))
            << cells[0];
        EXPECT_EQ(run.status, 0);
    }
}

TEST_F(Walkers, FindTheTargetThatTheKernelFinds) {
    tree.file("dir/file");
    tree.link("self", "self");
    tree.link("back", tree.path("forth"));
    tree.link("forth", tree.path("back"));
    tree.link("there", tree.path("dir"));
    const std::string longName(300, 'x');
    const UniqueFd directory(open(tree.path().c_str(), O_RDONLY | O_CLOEXEC));
    EntryStatus holder;
    ASSERT_EQ(lookAt(directory.get(), "", holder), 0);
    FileSystems fileSystems;
    fileSystems.beginOn(holder.device);
    for (const std::string& target : Lines{"nowhere",
                                           "dir",
                                           "dir/",
                                           "dir/./../dir//file",
                                           "dir/file/",
                                           "dir/file/.",
                                           "self",
                                           "there",
                                           "there/file",
                                           "@/there/file/",
                                           "@/back",
                                           longName,
                                           "@",
                                           "/",
                                           "//",
                                           "/..",
                                           "/" + longName,
                                           "/etc/../etc//passwd",
                                           "/etc/passwd/x",
                                           "/etc/none/x",
                                           "/dev/null",
                                           "/proc/self/exe",
                                           "/proc/self/cwd/..",
                                           "/proc/self/root/@/dir",
                                           "/proc/mounts",
                                           "/proc/self/none"}) {
        std::filesystem::remove(tree.path("link"));
        const std::string link = tree.link("link", replaceAll(target, "@", tree.path()));
        struct stat expected {};
        struct stat found {};
        const int reason = stat(link.c_str(), &expected) == 0 ? 0 : errno;
        UniqueFd end;
        EXPECT_EQ(openLinkTarget(fileSystems, directory.get(), holder.device, "link", end), reason) << target;
        EXPECT_EQ(fstat(end.get(), &found), reason == 0 ? 0 : -1) << target;
        EXPECT_EQ(std::pair(found.st_dev, found.st_ino), std::pair(expected.st_dev, expected.st_ino))
            << target;
    }
}
