#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

#include <gtest/gtest.h>

#include "common/sm3_hash.h"
#include "tests/support/captured_log.h"
#include "tests/support/run.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

namespace {

// What a run shows, in the order of the marks; of a run that was killed the first line of
// its reports.
std::string describe(const RunResult& run) {
    const std::string err = run.status < 0 ? run.err.substr(0, run.err.find('\n')) : run.err;
    std::string text = std::to_string(run.status);
    for (const std::string& part : {run.calls, run.out, err}) {
        text += "\n| " + replaceAll(part, "\n$", "");
    }
    return text;
}

}  // namespace

TEST(Commands, DoAsTheTableSays) {
    for (const Lines& cells : readRuns(fileContent(TESTS_DIRECTORY "/cli/commands.txt"), "$=<> !")) {
        EXPECT_EQ(
            describe(runToolWithFake(split(cells[0], " "), cells[2])),
            (cells[1].empty() ? "0" : cells[1]) + "\n| " + cells[3] + "\n| " + cells[4] + "\n| " + cells[5])
            << cells[0] << " with " << cells[2];
    }
}

TEST(Commands, PrintTheUsage) {
    // The text is a promise down to its slips: when it changes on purpose, so does its
    // digest.
    constexpr const char* kUsage = "94c1e7cdca3e24a94ba86cdf080fe99e6b12141259b2cf19ab16c956004b8081";
    for (const char* words : {"-h", "--help", "-g -o /f -h --unknown", ""}) {
        const RunResult run = runToolWithFake(*words == '\0' ? Lines() : split(words, " "));
        EXPECT_EQ(getSM3HashValue(run.out), kUsage) << run.out;
        EXPECT_EQ(std::to_string(run.status) + run.err + run.calls, "0") << words;
    }
}

TEST(Commands, NeverLoseOutputSilently) {
    const auto closed = [] { close(STDOUT_FILENO); };
    const auto full = [] { dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); };
    const auto unread = [] {
        int ends[2];
        static_cast<void>(pipe(ends));
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
    };
    // The messages have no end, so that a run ends by the line that it loses.
    const auto run = [](const std::string& words, const std::function<void()>& prepare) {
        const RunResult result = runToolWithFake(split(words, " "), "recvLabelChangeMsg=0 m", {{}, prepare});
        return std::to_string(result.status) + ' ' + result.err;
    };
    EXPECT_EQ(run("-S", full), "1 zorv-label-manager-tool: write error: No space left on device\n");
    EXPECT_EQ(run("-d -o /f", closed), "1 zorv-label-manager-tool: write error: Bad file descriptor\n");
    EXPECT_EQ(run("-a -f x", closed), "0 ");
    EXPECT_EQ(run("-S", unread), std::to_string(-SIGPIPE) + ' ');
}

TEST(Commands, KeepBothStreamsInOrder) {
    const auto join = [] { dup2(STDOUT_FILENO, STDERR_FILENO); };
    EXPECT_EQ(runToolWithFake({"-d", "-m", "x", "-l", "/no"}, "", {{}, join}).out,
              "================================\nWarning: No files matched the pattern: /no\n"
              "delete file sid success. /no\n");
}

TEST(Commands, SayZeroWithoutACryptoLibraryOfUse) {
    constexpr const char* kLog = "/var/log/zorv/digest.log";
    putFile(kLogProperties, "log4cpp.rootCategory=ERROR, file\n" + fileAppender("file", kLog));
    const TemporaryTree tree;
    tree.file("broken/" LIBCRYPTO_SONAME, "no library");
    tree.directory("lacking");
    tree.link("lacking/" LIBCRYPTO_SONAME, NO_DIGEST_LIBRARY);
    const std::pair<std::string, std::string> variables[] = {{"LD_PRELOAD", NO_DIGEST_LIBRARY},
                                                             {"LD_LIBRARY_PATH", tree.path("broken")},
                                                             {"LD_LIBRARY_PATH", tree.path("lacking")}};
    for (const auto& variable : variables) {
        std::filesystem::remove(kLog);
        const RunResult run =
            runTool({"-3", "abc"}, {{variable, {"ASAN_OPTIONS", "verify_asan_link_order=0"}}, {}});
        EXPECT_EQ(run.out + run.err, "SM3 Hash (last 64 bits): 0000000000000000\n");
        EXPECT_EQ(replaceAll(fileContent(kLog), ":[0-9]+\\]", "]"),
                  "ERROR [getSM3HashValue] Unsupported hash function SM3\n"
                  "ERROR [getSM3HashLast64Bits] hash string is too short\n")
            << variable.second;
    }
    std::filesystem::remove(kLogProperties);
}
