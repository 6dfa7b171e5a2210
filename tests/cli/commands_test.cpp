#include <gtest/gtest.h>

#include "tests/support/run.h"
#include "tests/support/temporary_tree.h"

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
