#include "tests/support/manager.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <regex>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "cli/label_manager.h"
#include "tests/support/captured_log.h"
#include "tests/support/run.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

namespace {

std::string fillIn(const std::string& text, const std::string& tree) {
    return withDigests(std::regex_replace(text, std::regex("TREE"), tree));
}

}  // namespace

TEST(Manager, ServesAnAdministratorsSession) {
    putFile(kLogProperties, "log4cpp.rootCategory=INFO, A\n" + fileAppender("A", "/var/log/zorv/test.log"));
    TemporaryTree tree;
    chmod(tree.file("script").c_str(), 0755);
    for (const char* name : {"docs/a.txt", "docs/b.txt", "docs/deep/c.txt", "private/key"}) {
        tree.file(name);
    }
    tree.link("link", "script");
    putFile(std::getenv("ZORV_LABEL_POLICY_FILE"),
            fillIn("[tid]\nTREE/* = 3\nTREE/docs/*.txt = 0x11\nTREE/docs/* = x\n[exclude]\nTREE/private* =\n",
                   tree.path()));
    ASSERT_EQ(chdir(tree.path().c_str()), 0);
    ASSERT_TRUE(setPkgId("earlier", 1) == 0 &&
                delUserSetPkgId("earlier") == 0);  // no news to a later listener
    void* subscriber = createSubscriber();
    ASSERT_EQ(subscribeLabelChangeMsg(subscriber, ""), 0);
    for (const Lines& row : readRuns(fileContent(TESTS_DIRECTORY "/e2e/session.txt"), "$= *")) {
        const RunResult run = runTool(split(fillIn(row[0], tree.path()), " "));
        std::string out = replaceAll(replaceAll(run.out, "[0-9]+\\.[0-9]{4} ", "SECONDS "), " ?\n$", "");
        EXPECT_EQ(std::to_string(run.status) + " " + out,
                  (row[1].empty() ? "0" : row[1]) + " " + fillIn(row[2], tree.path()))
            << row[0];
        EXPECT_EQ(run.err, "") << row[0];
        EXPECT_EQ(messagesSoFar(subscriber),
                  fillIn("\n" + row[3] + (row[3].empty() ? "" : "\n"), tree.path()))
            << row[0];
    }
    lremovexattr("/usr/bin/ls", "security.zorv");
    std::filesystem::remove(std::getenv("ZORV_LABEL_POLICY_FILE"));
    ASSERT_EQ(chdir("/"), 0);
}

TEST(Manager, RefusesStoresThatItCannotTrust) {
    constexpr const char* kTable = R"(
# how the store is spoiled | why it is refused
rm -r STORE && touch STORE      | STORE: Not a directory
chmod 777 STORE                 | STORE: refused: writable by others
chown 1 STORE                   | STORE: refused: not owned by root
chmod 660 STORE/label.db        | STORE/label.db: refused: writable by others
ln -sf /dev/null STORE/label.db | STORE/label.db: refused: not a regular file
cp /bin/true STORE/label.db     | STORE/label.db: file is not a database
)";
    TemporaryTree tree;
    const std::string file = tree.file("file");
    const std::string store = std::getenv("ZORV_LABEL_STATE_DIR");
    for (const Lines& row : readTable(kTable, 2)) {
        std::filesystem::remove_all(store);
        ASSERT_EQ(setFileTid(file.c_str(), 7, 0), 0);
        ASSERT_EQ(std::system(replaceAll(row[0], "STORE", store).c_str()), 0);
        CapturedLog log;
        EXPECT_NE(setFileTid(file.c_str(), 8, 0), 0) << row[0];
        EXPECT_EQ(log.take(), Lines{"ERROR [setFileTid] " + replaceAll(row[1], "STORE", store)});
        UserSetRecord* records = nullptr;
        EXPECT_LT(showUserSetFileTid(&records), 0) << row[0];
        EXPECT_EQ(labelAttribute(file).substr(48, 10), "0700000020") << row[0];
    }
}

TEST(Manager, WritesNoLabelWithoutDigests) {
    TemporaryTree tree;
    const std::string file = tree.file("root/file");
    tree.file("lib/" LIBCRYPTO_SONAME);
    ASSERT_NE(restoreSingleFileLabel(file), "");
    const std::string before = labelAttribute(file);
    const int status = getLabelSetStatus();
    for (const std::string& words : {"-r -l " + file, "-i -l " + file, "-a -s " + tree.path("root"),
                                     std::string("-g -p dpkg"), std::string("-g -e null")}) {
        const RunResult run = runTool(split(words, " "), {{{"LD_LIBRARY_PATH", tree.path("lib")}}});
        EXPECT_EQ(run.status, words.starts_with("-a") ? 0 : 1) << words << run.out;
        EXPECT_EQ(labelAttribute(file), before) << words;
    }
    EXPECT_EQ(getLabelSetStatus(), status);
}

TEST(Manager, LosesNothingBetweenProcesses) {
    constexpr uint32_t kChanges = 500;
    TemporaryTree tree;
    const std::string files[] = {tree.file("a"), tree.file("b")};
    void* subscriber = createSubscriber();
    ASSERT_EQ(subscribeLabelChangeMsg(subscriber, "file "), 0);  // before there is a store
    ASSERT_EQ(setPkgId("x", 1), 0);                              // of another topic
    std::vector<pid_t> writers;
    for (const std::string& file : files) {
        for (const auto set : {setFileTid, setFileInheritFlag}) {
            writers.push_back(fork());  // what this process has done must not disturb its children
            if (writers.back() == 0) {
                int failures = 0;
                for (uint32_t i = 1; i <= kChanges; ++i) {
                    failures += set(file.c_str(), i % 8, 0) != 0 ? 1 : 0;
                }
                _exit(failures == 0 ? 0 : 1);
            }
        }
    }
    std::map<std::string, uint32_t> counts;
    for (uint32_t i = 0; i < writers.size() * kChanges; ++i) {
        const std::string message = nextMessage(subscriber);
        const std::string change = message.substr(0, message.rfind(' '));
        ASSERT_EQ(message, change + " 0000000" + std::to_string(++counts[change] % 8));
    }
    EXPECT_EQ(counts.size(), writers.size());
    for (const pid_t writer : writers) {
        int status = 1;
        waitpid(writer, &status, 0);
        EXPECT_EQ(status, 0);
    }
    for (const std::string& file : files) {
        EXPECT_EQ(labelAttribute(file).substr(48), "040000000400000024");
    }

    std::filesystem::remove_all(std::getenv("ZORV_LABEL_STATE_DIR"));
    ASSERT_EQ(setPkgId("x", 1), 0);
    EXPECT_EQ(nextMessage(subscriber), "failed");
}
