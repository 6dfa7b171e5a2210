#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <linux/capability.h>
#include <map>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/run.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

namespace {

constexpr const char* kProperties = "/etc/zorv/label/zorv-label-log.properties";
constexpr const char* kLog = "/var/log/zorv/walkers.log";
constexpr const char* kFailed = "get file label failed, \n";
constexpr const char* kRemoving = "================================\n";

// A label with the OID package number `digit`, and the line that shows it.
void label(const std::string& path, char digit) {
    setLabelAttribute(path, std::string("0") + digit + std::string(48, '0'));
}
std::string shown(const std::string& path, char digit) {
    const std::string zeros(16, '0');
    const std::string rest = '-' + zeros + '-' + zeros;
    return "file: " + path + " label: " + std::string(15, '0') + digit + rest + ":0:" + zeros + rest +
           ":0:" + zeros + rest + '\n';
}

class Walkers : public testing::Test {
 protected:
    Walkers() {
        putFile(kProperties,
                std::string("log4cpp.rootCategory=ERROR, file\n"
                            "log4cpp.appender.file=FileAppender\nlog4cpp.appender.file.fileName=") +
                    kLog +
                    "\nlog4cpp.appender.file.layout=PatternLayout\n"
                    "log4cpp.appender.file.layout.ConversionPattern=%p %m%n\n");
        std::filesystem::remove(kLog);
    }

    // Never a call of the label manager, never a failure; "@" in a word stands for the tree.
    void expectRun(const char* line, const std::string& out, const std::string& err = "",
                   const std::function<void()>& prepare = {}) {
        const std::vector<std::string> words = split(replaceAll(line, "@", tree.path()), " ");
        const RunResult run = runToolWithFake(words, "", {{{"HOME", tree.path()}}, prepare});
        EXPECT_EQ(run.out, out) << line;
        EXPECT_EQ(run.err, err) << line;
        EXPECT_EQ(run.calls, "");
        EXPECT_EQ(run.status, 0);
    }

    // Some files, directories and links, each with its own digit.
    void makeFiles() {
        label(tree.file("b.conf"), '1');
        label(a, '2');
        label(tree.link("link", "a.conf"), '3');
        label(tree.directory("dir"), '4');
        label(tree.file("dir/f"), '5');
        label(tree.link("dirlink", "dir"), '6');
        tree.file("unlabelled");
        tree.link("dangling", "nowhere");
    }

    const TemporaryTree tree;
    const std::string a = tree.file("a.conf");
    const std::string dir = tree.path("dir");
    const std::string link = tree.path("link");
    const std::string dirlink = tree.path("dirlink");
};

std::string expectedWalk(const std::string& path) {
    std::string all = shown(path, '7');
    label(path, '7');
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        if (entry.is_directory() && !entry.is_symlink()) {
            all += expectedWalk(entry.path());
        } else {
            label(std::filesystem::canonical(entry.path()), '7');
            all += shown(entry.path(), '7');
        }
    }
    return all;
}

}  // namespace

TEST_F(Walkers, ShowTheLabelsOfWhatTheOperandsMatch) {
    makeFiles();
    const std::string warning = "Warning: No files matched the pattern: ";
    const std::string dangling = "Error: File or directory does not exist: " + tree.path("dangling\n");
    expectRun("-g -l @/a.conf", shown(a, '2'));
    expectRun("-g -l @/*.conf", shown(a, '2') + shown(tree.path("b.conf"), '1'));
    expectRun("-g -l ~/a.conf @/unlabelled @/nope* @/a.conf", shown(a, '2') + kFailed + shown(a, '2'),
              warning + tree.path("nope*\n"));
    expectRun("-g -l @/a.conf -R", "", warning + "-R\n");
    expectRun("-g --label=", "", warning + "--label=\n");
    expectRun("-g -l @/link", shown(link, '2'));
    expectRun("-H -g -l @/link", shown(link, '3'));
    expectRun("-g -l @/d*", shown(dir, '4') + shown(dirlink, '4'), dangling);
    expectRun("-H -g -l @/d*", shown(dir, '4') + shown(dirlink, '6'), dangling);
    expectRun("-R -g -l @/dir", shown(dir, '4') + shown(dir + "/f", '5'));
    expectRun("-g -L @/dir/", shown(dir + '/', '4') + shown(dir + "/f", '5'));
    expectRun("-R -g -l @/dirlink @/a.conf",
              shown(dirlink, '4') + shown(dirlink + "/f", '5') + shown(a, '2'));
    expectRun("-R -H -g -l @/dirlink", shown(dirlink, '6') + shown(dirlink + "/f", '5'));
}

TEST_F(Walkers, RemoveLabels) {
    makeFiles();
    expectRun("-d -l @/link", kRemoving);
    EXPECT_EQ(labelAttribute(a), "none");
    EXPECT_NE(labelAttribute(link), "none");
    expectRun("-d -l @/link @/b.conf", kRemoving + ("remove file label from xattr error, " + link) +
                                           " lremovexattr failed, No data available\n");
    EXPECT_EQ(labelAttribute(tree.path("b.conf")), "none");
    expectRun("-H -d -l @/link", kRemoving);
    EXPECT_EQ(labelAttribute(link), "none");
    expectRun("-R -d -l @/dir", kRemoving);
    EXPECT_EQ(labelAttribute(dir) + labelAttribute(dir + "/f"), "nonenone");
    EXPECT_NE(labelAttribute(dirlink), "none");
}

TEST_F(Walkers, VisitInDirectoryOrderWhateverTheNames) {
    for (const std::string name : {"new\nline", "\xff\xfe", "*", " ", "-R", "sub/x", "sub/sub/y", "%s%n"}) {
        tree.file("walk/" + name);
        tree.file("walk/sub2/" + name);
    }
    tree.file("walk/" + std::string(255, 'n'));
    tree.directory("walk/" + std::string(255, 'd'));
    tree.file("elsewhere/hidden");
    tree.link("walk/link", "../elsewhere");
    expectRun("-R -g -l @/walk", expectedWalk(tree.path("walk")));
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
    std::string expected = shown(tree.path("deep"), '1');
    std::string path = tree.path("deep/d");
    for (; path.size() < PATH_MAX; path += "/d") {
        expected += kFailed;
    }
    expected += path + " opendir error: File name too long\n" + shown(tree.path("deep/last"), '2');
    const auto limit = [](rlim_t hard) {
        const rlimit descriptors{32, hard};
        setrlimit(RLIMIT_NOFILE, &descriptors);
    };
    expectRun("-R -g -l @/deep", expected, "", [&] { limit(4096); });
    const RunResult exhausted =
        runToolWithFake({"-R", "-g", "-l", tree.path("deep")}, "", {{}, [&] { limit(64); }});
    EXPECT_THAT(exhausted.out, testing::EndsWith("d opendir error: Too many open files\n" +
                                                 shown(tree.path("deep/last"), '2')));
    EXPECT_EQ(exhausted.status, 0);
}

TEST_F(Walkers, PassOverUnreadableDirectories) {
    label(tree.directory("walk"), '1');
    label(tree.directory("walk/closed"), '2');
    chmod(tree.path("walk/closed").c_str(), 0);
    label(tree.directory("walk/open"), '3');
    // Root in every other respect, so that the program itself stays readable.
    const auto loseOverride = [] {
        prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
        prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
    };
    expectRun("-R -g -l @/walk",
              shown(tree.path("walk"), '1') + shown(tree.path("walk/open"), '3') + tree.path("walk/closed") +
                  " opendir error: Permission denied\n",
              "", loseOverride);
}

TEST_F(Walkers, LogWhyAValueIsNoLabel) {
    const std::string path = tree.file("f");
    std::string log;
    for (const auto& [value, reason] : std::map<std::string, std::string>{
             {"", "Extended attribute is empty: security.zorv"},
             {"00", "Label deserialization failed: Buffer size is invalid"},
             {std::string(48, '7') + "80",
              "Label deserialization failed: Buffer too small for required data"}}) {
        setLabelAttribute(path, value);
        expectRun("-g -l @/f", kFailed);
        log += "ERROR [getFromXattr] LabelError: " + reason + ": " + path + '\n';
    }
    EXPECT_EQ(replaceAll(fileContent(kLog), ":[0-9]+\\]", "]"), log);
}

TEST_F(Walkers, TellOnceThatTheLogIsNotConfigured) {
    std::filesystem::remove(kProperties);
    const std::string path = tree.file("f");
    label(path, '1');
    const std::string noConfig = std::string("Failed to open config file: ") + kProperties + '\n';
    expectRun("-g -l @/f", "read log config error.\n" + shown(path, '1'), noConfig);
    // The label manager logs in the same process, through the same logger.
    const RunResult run = runTool({"-g", "-o", path, "-l", path});
    EXPECT_EQ(run.out, "read log config error.\n" + path +
                           " oid:0000000000000001-0000000000000000-0000000000000000\n" + shown(path, '1'));
    EXPECT_EQ(run.err, noConfig);
    // The log file, opened later, must not take the place of a closed output.
    EXPECT_EQ(runTool({"-g", "-l", path}, {{}, [] { close(STDOUT_FILENO); }}).status, 1);
    EXPECT_EQ(fileContent("/var/log/zorv/zorv_label_manager.log"), "");
}
