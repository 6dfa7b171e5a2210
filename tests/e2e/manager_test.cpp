#include <atomic>
#include <cinttypes>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <regex>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "cli/label_manager.h"
#include "common/sm3_hash.h"
#include "tests/e2e/field_values.h"
#include "tests/support/captured_log.h"
#include "tests/support/run.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

namespace {

// Keeps the logger's own lines out of what the tool prints.
void configureLog() {
    std::filesystem::create_directories("/etc/zorv/label");
    putFile("/etc/zorv/label/zorv-label-log.properties",
            "log4cpp.rootCategory=INFO, A\nlog4cpp.appender.A=FileAppender\n"
            "log4cpp.appender.A.fileName=/var/log/zorv/test.log\nlog4cpp.appender.A.layout=BasicLayout\n");
}

std::string hexadecimalSm3(const std::string& text) {
    char digits[17];
    std::snprintf(digits, sizeof(digits), "%016" PRIx64, getSM3HashLast64Bits(text));
    return digits;
}

std::string fillIn(std::string text, const std::string& tree) {
    text = std::regex_replace(text, std::regex("TREE"), tree);
    for (std::smatch match; std::regex_search(text, match, std::regex("SM3\\(([^)]*)\\)"));) {
        text = match.prefix().str() + hexadecimalSm3(match[1]) + match.suffix().str();
    }
    return text;
}

// Functions in processes of their own, all at once. Started by the only thread of this process.
std::vector<pid_t> startTogether(const std::vector<std::function<int()>>& bodies) {
    std::vector<pid_t> children;
    for (const auto& body : bodies) {
        const pid_t child = fork();
        if (child == 0) {
            _exit(body());
        }
        children.push_back(child);
    }
    return children;
}

// True when all of them answered 0.
bool succeedTogether(const std::vector<pid_t>& children) {
    bool succeeded = true;
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        succeeded = succeeded && status == 0;
    }
    return succeeded;
}

}  // namespace

TEST(Manager, ServesAnAdministratorsSession) {
    configureLog();
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
    const ToolInBackground listener({"-S"});
    std::string received;
    for (uint64_t i = 1; i < 1000 && received.empty(); ++i) {  // until it listens
        ASSERT_EQ(setPkgId("ready", i), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        received = listener.outEndingWith("");
    }
    ASSERT_EQ(delUserSetPkgId("ready"), 0);
    received = listener.outEndingWith("Recviced: package del_id ready " + hexadecimalSm3("ready") + "\n");
    for (const std::vector<std::string>& row :
         readTable(fileContent(TESTS_DIRECTORY "/e2e/session.txt"), 4)) {
        const RunResult run = runTool(split(fillIn(row[0], tree.path()), " "));
        std::string out = replaceAll(replaceAll(run.out, "[0-9]+\\.[0-9]{4} ", "SECONDS "), " ?\n$", "");
        EXPECT_EQ(std::to_string(run.status) + " " + out, row[1] + " " + fillIn(row[2], tree.path()))
            << row[0];
        EXPECT_EQ(run.err, "") << row[0];
        const std::string expected =
            row[3].empty()
                ? ""
                : "Recviced: " + replaceAll(fillIn(row[3], tree.path()), "\n", "\nRecviced: ") + "\n";
        const std::string all = listener.outEndingWith(received + expected);
        EXPECT_EQ(all.substr(received.size()), expected) << row[0];
        received = all;
    }
    lremovexattr("/usr/bin/ls", "security.zorv");
    std::filesystem::remove(std::getenv("ZORV_LABEL_POLICY_FILE"));
    ASSERT_EQ(chdir("/"), 0);
}

TEST(Manager, RefusesStoresThatItCannotTrust) {
    TemporaryTree tree;
    const std::string file = tree.file("file");
    const std::string store = std::getenv("ZORV_LABEL_STATE_DIR");
    const std::string database = store + "/label.db";
    const struct {
        const char* name;
        std::function<void()> spoil;
        const char* reason;
    } rows[] = {
        {"not a directory", [&] { putFile(store, ""); }, "STORE: Not a directory"},
        {"open to others", [&] { chmod(store.c_str(), 0777); }, "STORE: refused: writable by others"},
        {"of another user", [&] { chown(store.c_str(), 1, 1); }, "STORE: refused: not owned by root"},
        {"open file", [&] { chmod(database.c_str(), 0660); }, "STORE/label.db: refused: writable by others"},
        {"a link", [&] { symlink("/dev/null", database.c_str()); },
         "STORE/label.db: refused: not a regular file"},
        {"garbage", [&] { putFile(database, std::string(5000, 'x')); },
         "STORE/label.db: file is not a database"},
    };
    for (const auto& row : rows) {
        std::filesystem::remove_all(store);
        ASSERT_EQ(setFileTid(file.c_str(), 7, 0), 0);
        if (row.name == std::string("not a directory")) {
            std::filesystem::remove_all(store);
        } else if (row.name == std::string("a link")) {
            std::filesystem::remove(database);
        }
        row.spoil();
        const std::string before = std::filesystem::is_regular_file(database) ? fileContent(database) : "";
        CapturedLog log;
        EXPECT_NE(setFileTid(file.c_str(), 8, 0), 0) << row.name;
        EXPECT_EQ(log.take(),
                  std::vector<std::string>{"ERROR [setFileTid] " + replaceAll(row.reason, "STORE", store)});
        UserSetRecord* records = nullptr;
        EXPECT_LT(showUserSetFileTid(&records), 0) << row.name;
        EXPECT_EQ(labelAttribute(file).substr(48, 10), "0700000020") << row.name;
        EXPECT_EQ(std::filesystem::is_regular_file(database) ? fileContent(database) : "", before)
            << row.name;
    }
    std::filesystem::remove_all(store);
}

TEST(Manager, LosesNothingBetweenProcesses) {
    TemporaryTree tree;
    const std::string file = tree.file("file");
    void* subscriber =
        createSubscriber();  // what a process does before it forks must not disturb its children
    ASSERT_EQ(setFileTid(file.c_str(), 1, 0) + subscribeLabelChangeMsg(subscriber, ""), 0);
    const auto setTids = [&file] {
        int failures = 0;
        for (uint32_t i = 1; i <= 500; ++i) {
            failures += setFileTid(file.c_str(), i, 0) != 0 ? 1 : 0;
        }
        return failures;
    };
    const auto setFlags = [&file] {
        int failures = 0;
        for (uint32_t i = 1; i <= 500; ++i) {
            failures += setFileInheritFlag(file.c_str(), i % 8, 0) != 0 ? 1 : 0;
        }
        return failures;
    };
    EXPECT_TRUE(succeedTogether(startTogether({setTids, setFlags})));
    uint32_t flag = 9;
    EXPECT_EQ(tidOf(file), 500U);
    EXPECT_EQ(getFileInheritFlag(file.c_str(), &flag), 0);
    EXPECT_EQ(flag, 500U % 8);
}

TEST(Manager, DeliversEveryChangeOnceAndInOrder) {
    constexpr int kWriters = 4;
    constexpr uint32_t kChanges = 500;
    TemporaryTree tree;
    void* subscriber = createSubscriber();
    void* packages = createSubscriber();
    ASSERT_EQ(subscribeLabelChangeMsg(subscriber, "file "), 0);  // before there is a store
    ASSERT_EQ(subscribeLabelChangeMsg(packages, "package set"), 0);
    std::vector<std::function<int()>> writers;
    for (int writer = 0; writer < kWriters; ++writer) {
        writers.push_back([path = tree.file("a b\n" + std::to_string(writer))] {
            int failures = 0;
            for (uint32_t i = 1; i <= kChanges; ++i) {
                failures += setFileTid(path.c_str(), i, 0) != 0 ? 1 : 0;
            }
            return failures;
        });
    }
    const std::vector<pid_t> children = startTogether(writers);
    std::map<std::string, uint32_t> last;
    for (uint32_t i = 0; i < kWriters * kChanges; ++i) {
        char* message = nullptr;
        ASSERT_EQ(recvLabelChangeMsg(subscriber, &message), 0);
        const std::vector<std::string> words = split(message, " ");
        std::free(message);
        ASSERT_EQ(words.size(), 4U);
        EXPECT_EQ(words[1], "set_tid");
        EXPECT_EQ(std::stoul(words[3], nullptr, 16), ++last[words[2]]) << words[2];
    }
    EXPECT_TRUE(succeedTogether(children));
    EXPECT_EQ(last.size(), size_t{kWriters});
    EXPECT_EQ(last.begin()->first, tree.path("a\\040b\\0120"));

    ASSERT_EQ(setPkgId("x y", 1), 0);
    char* message = nullptr;
    ASSERT_EQ(recvLabelChangeMsg(packages, &message), 0);
    EXPECT_STREQ(message, "package set_id x\\040y 0000000000000001");
    std::free(message);
    std::filesystem::remove_all(std::getenv("ZORV_LABEL_STATE_DIR"));
    ASSERT_EQ(setPkgId("x", 1), 0);
    while (recvLabelChangeMsg(packages, &message) ==
           0) {  // the store that it followed still has its messages
        std::free(message);
    }
}
