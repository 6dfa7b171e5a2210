#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/label_walkers.h"
#include "tests/support/captured_log.h"
#include "tests/support/run.h"
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
    void expectRun(const std::string& line, const std::string& out, const std::string& err = "",
                   const std::function<void()>& prepare = {}) const {
        const Lines words = split(replaceAll(line, "@", tree.path()), " ");
        const RunResult run = runToolWithFake(words, "", {{{"HOME", tree.path()}}, prepare});
        EXPECT_EQ(shortened(run.out), out.empty() ? "" : out + '\n') << line;
        EXPECT_EQ(shortened(run.err), err.empty() ? "" : err + '\n') << line;
        EXPECT_EQ(run.calls, "");
        EXPECT_EQ(run.status, 0);
    }

    const TemporaryTree tree;
};

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
    tree.file("none");
    tree.link("dangling", "nowhere");
    constexpr const char* kTable = R"(
# words | standard output | standard error, in order: what is removed is missing afterwards
-g -l @/*.conf | 2 @/a.conf\n1 @/b.conf
-g -l ~/a.conf @/none @/nope* @/a.conf | 2 @/a.conf\nget file label failed, \n2 @/a.conf | Warning: No files matched the pattern: @/nope*
-g -l @/short @/a.conf | get file label failed, \n2 @/a.conf
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

TEST_F(Walkers, TakeAnyCallable) {
    Lines calls;
    const auto note = [&](const std::string& path, const std::string& attribute) {
        calls.push_back(shortened(path) + ' ' + attribute);
        return 0;
    };
    tree.file("dir/file");
    walkPattern(tree.path("d*"), "one", note, false);
    walkDirectory(tree.path("dir"), "two", note);
    EXPECT_THAT(calls, testing::ElementsAre("@/dir one", "@/dir two", "@/dir/file two"));
}

TEST_F(Walkers, SurviveDepthBeyondPathsAndDescriptors) {
    label(tree.directory("deep"), '1');
    label(tree.file("deep/last"), '2');
    int directory = open(tree.path("deep").c_str(), O_RDONLY | O_CLOEXEC);
    for (int level = 0; level < 2200; ++level) {
        ASSERT_EQ(mkdirat(directory, "d", 0755), 0);
        const int next = openat(directory, "d", O_RDONLY | O_CLOEXEC);
        close(std::exchange(directory, next));
    }
    close(directory);
    std::string expected = "1 @/deep\n";
    std::string path = tree.path("deep/d");
    for (; path.size() < PATH_MAX; path += "/d") {
        expected += "get file label failed, \n";
    }
    const auto limit = [](rlim_t hard) {
        const rlimit descriptors{32, hard};
        setrlimit(RLIMIT_NOFILE, &descriptors);
    };
    expectRun("-R -g -l @/deep",
              expected + shortened(path) + " opendir error: File name too long\n2 @/deep/last", "",
              [&] { limit(4096); });
    const RunResult exhausted =
        runToolWithFake({"-R", "-g", "-l", tree.path("deep")}, "", {{}, [&] { limit(64); }});
    EXPECT_THAT(shortened(exhausted.out),
                testing::EndsWith("d opendir error: Too many open files\n2 @/deep/last\n"));
    EXPECT_EQ(exhausted.status, 0);
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
    const RunResult run = runTool({"-g", "-o", path, "-l", path});
    EXPECT_EQ(shortened(run.out),
              "read log config error.\n@/f oid:0000000000000001-0000000000000000-0000000000000000\n1 @/f\n");
    EXPECT_EQ(run.err, noConfig + '\n');
    // The log file, opened later, must not take the place of a closed output.
    for (const int closed : {STDOUT_FILENO, STDERR_FILENO}) {
        EXPECT_EQ(runTool({"-g", "-l", path, "/no"}, {{}, [closed] { close(closed); }}).status,
                  closed == STDOUT_FILENO ? 1 : 0);
    }
    EXPECT_EQ(fileContent("/var/log/zorv/zorv_label_manager.log"), "");
}
