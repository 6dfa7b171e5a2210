#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/run.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

namespace {

// What a run shows, in the columns of the table; of a run that was killed the first line of its reports.
std::string describe(const RunResult& run) {
    const std::string err = run.status < 0 ? run.err.substr(0, run.err.find('\n')) : run.err;
    std::string text = std::to_string(run.status);
    for (const std::string& part : {run.calls, replaceAll(run.out, "[0-9]+\\.[0-9]{4} ", "SECONDS "), err}) {
        text += "\n| " + replaceAll(part, "\n$", "");
    }
    return text;
}

}  // namespace

TEST(Commands, DoAsTheTableSays) {
    for (const std::vector<std::string>& cells :
         readTable(fileContent(TESTS_DIRECTORY "/cli/commands.txt"), 6)) {
        std::vector<std::string> words = split(cells[0], " ");
        std::replace(words.begin(), words.end(), std::string("''"), std::string());
        EXPECT_EQ(describe(runToolWithFake(words, cells[2])),
                  cells[1] + "\n| " + cells[3] + "\n| " + cells[4] + "\n| " + cells[5])
            << cells[0] << " with " << cells[2];
    }
}

TEST(Commands, PrintTheUsage) {
    const std::string usage = fileContent(TESTS_DIRECTORY "/cli/usage.txt");
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{}, {"-h"}, {"--help"}, {"-g", "-o", "/f", "-h", "--unknown"}}) {
        const RunResult run = runToolWithFake(words);
        EXPECT_EQ(run.out, usage);
        EXPECT_EQ(run.err + run.calls, "");
        EXPECT_EQ(run.status, 0);
    }
}

TEST(Commands, NeverLoseOutputSilently) {
    const auto closeOutput = [] { close(STDOUT_FILENO); };
    const auto fillDisk = [] { dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO); };
    const auto stopReading = [] {
        int ends[2];
        static_cast<void>(pipe(ends));
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
    };
    const std::string error = "zorv-label-manager-tool: write error: ";
    struct Row {
        std::vector<std::string> words;
        std::function<void()> prepare;
        int status;
        std::string err;
    };
    // Messages without end, unless the lost line ends the run.
    for (const Row& row : {Row{{"-S"}, fillDisk, 1, error + "No space left on device\n"},
                           {{"-h"}, fillDisk, 1, error + "No space left on device\n"},
                           {{"-d", "-o", "/f"}, closeOutput, 1, error + "Bad file descriptor\n"},
                           {{"-a", "-f", "x"}, closeOutput, 0, ""},
                           {{"-S"}, stopReading, -SIGPIPE, ""}}) {
        const RunResult run = runToolWithFake(row.words, "recvLabelChangeMsg=0 m", {{}, row.prepare});
        EXPECT_EQ(run.status, row.status) << row.words[0];
        EXPECT_EQ(run.err, row.err) << row.words[0];
    }
}

TEST(Commands, KeepBothStreamsInOrder) {
    const RunResult run =
        runToolWithFake({"-d", "-m", "x", "-l", "/no"}, "", {{}, [] { dup2(STDOUT_FILENO, STDERR_FILENO); }});
    EXPECT_EQ(run.out,
              "================================\nWarning: No files matched the pattern: /no\n"
              "delete file sid success. /no\n");
}
