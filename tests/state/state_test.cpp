#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/label_manager.h"
#include "common/config_parsing.h"
#include "labelmgr/policy/policy_file.h"
#include "state/policy_findings.h"
#include "tests/support/captured_log.h"
#include "tests/support/manager.h"
#include "tests/support/run.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

using testing::HasSubstr;

namespace {

const std::string kZero = "0000000000000000-0000000000000000-0000000000000000";

RunResult runState(const std::string& words) {
    return runTool(split(words, " "), {.program = "zorv-label-state"});
}

// In a tree of its own, with a store and a policy that are not there yet.
class State : public testing::Test {
 protected:
    State() : store(std::getenv("ZORV_LABEL_STATE_DIR")), policy(std::getenv("ZORV_LABEL_POLICY_FILE")) {
        putFile(kLogProperties,
                "log4cpp.rootCategory=INFO, A\n" + fileAppender("A", "/var/log/zorv/test.log"));
        std::filesystem::remove_all(store);
        require(chdir(tree.path().c_str()) == 0);
        for (const char* name : {"f/a", "f/b", "f/c"}) {
            tree.file(name);
        }
    }
    ~State() override {
        std::filesystem::remove(policy);
        std::filesystem::remove_all(store);
        require(chdir("/") == 0);
    }

    std::string fillIn(std::string text) const {
        for (const auto& [name, value] : std::vector<std::pair<std::string, std::string>>{
                 {"TREE/\\.\\.", std::filesystem::path(store).parent_path()},
                 {"OID\\(a\\)", "0000000000000000-SM3(a)-SM3(TREE/f/a)"},
                 {"TREE", tree.path()},
                 {"HEAD ?", R"({"format":"zorv-label-state","version":1,"paths":[)"},
                 {"NEXT2 ?", R"(],"packages":[)"},
                 {"NEXT ?", R"(],"patterns":[)"},
                 {"END", "]}"},
                 {"ZERO", kZero}}) {
            text = replaceAll(text, name, value);
        }
        return withDigests(text);
    }

    const TemporaryTree tree;
    const std::string store;
    const std::string policy;
};

// What is told of the labels below the tree, sorted.
std::set<std::string> wrongLabels() {
    std::set<std::string> wrong;
    for (const std::string& line : split(runState("verify .").out, "\n")) {
        wrong.insert(line.substr(0, line.find(':')));
    }
    return wrong;
}

}  // namespace

TEST_F(State, ServesAnAdministratorsSession) {
    tree.link("l", "f");
    tree.directory("e");
    putFile(policy, fillIn("[tid]\nTREE/f/d* = 1\n[inherit_flag]\nTREE/* = 7\n[exclude]\nTREE/f/b =\n"));
    tree.file("none", fillIn("HEAD NEXT NEXT2 END"));
    const WithoutPackages without;
    void* listener = nullptr;
    for (const Lines& row : readRuns(fileContent(TESTS_DIRECTORY "/state/session.txt"), "$= !<*")) {
        if (!row[4].empty()) {
            tree.file("in", fillIn(row[4]));
        }
        if (listener == nullptr && row[0].starts_with("apply --json")) {
            EXPECT_FALSE(std::filesystem::exists(store));  // only asked until here
            listener = createSubscriber();
            ASSERT_EQ(subscribeLabelChangeMsg(listener, ""), 0);
        }
        const RunResult run = runState(fillIn(row[0]));
        EXPECT_EQ(std::to_string(run.status) + " " + run.out + run.err,
                  (row[1].empty() ? "0" : row[1]) + " " +
                      fillIn(row[2] + (row[2].empty() ? "" : "\n") + row[3] + (row[3].empty() ? "" : "\n")))
            << row[0];
        EXPECT_EQ(listener != nullptr ? messagesSoFar(listener) : "",
                  fillIn((listener != nullptr ? "\n" : "") + row[5] + (row[5].empty() ? "" : "\n")))
            << row[0];
    }
}

TEST_F(State, RefusesFilesWithTheLineAndChangesNothing) {
    const std::string endless = "\"" + std::string(3 << 20, 'x');
    for (const auto& [content, reason] : std::vector<std::pair<std::string, std::string>>{
             {"", "1: "},  // in words that differ between versions of the JSON library
             {"HEAD NEXT NEXT2 ]", "1: syntax error"},
             {"HEAD NEXT NEXT2 END\n{}", "2: syntax error"},
             {"{\n\"version\":2", "2: version 2 is not known"},
             {"{\n\"version\":18446744073709551616", "2: not a whole number of 64 bits"},
             {"{\n\"version\":\"1\"", "2: a text does not stand here"},
             {"{\"format\":\"other\"", "1: the format is not zorv-label-state"},
             {"{\"format\":\"zorv-label-state\",\"version\":1,\n\"paths\":[]}", "2: \"patterns\" is missing"},
             {"HEAD ],\n\"paths\":[]", "2: the key \"paths\" stands here for the second time"},
             {"HEAD {},", "1: a record without \"path\""},
             {"HEAD\n{\"path\":\"/a\",\"tid\":\"1\",\n\"tid\":\"1\"}", "3: the key \"tid\" stands here"},
             {"HEAD\n{\"path\":\"/a\",\"path\":\"/b\"", "2: a record has one name"},
             {"HEAD\n{\"path\":\"/a\",\"id\":\"1\"}", "2: unknown key \"id\""},
             {"HEAD\n{\"path\":\"/a\"}", "2: a record without a value"},
             {"HEAD\n{\"path\":\"a\",\"tid\":\"1\"}", "2: a path or pattern begins with"},
             {"HEAD\n{\"path\":\"/a\\u0000b\",\"tid\":\"1\"}", "2: a name has 1 to 4095 bytes"},
             {"HEAD\n{\"path_latin1\":\"/\\u0100\",\"tid\":\"1\"}", "2: a character beyond U+00FF"},
             {"HEAD\n{\"path\":\"/\xff", "2: syntax error"},
             {"HEAD\n{\"path\":\"/a\",\"tid\":\"123456789\"}", "2: bad value of \"tid\""},
             {"HEAD\n{\"path\":\"/a\",\"inherit_flag\":\"8\"}", "2: bad value of \"inherit_flag\""},
             {"HEAD\n{\"path\":\"/a\",\"oid\":\"1-2\"}", "2: bad value of \"oid\""},
             {"HEAD\n[", "2: an array does not stand here"},
             {std::string(100000, '['), "1: an array does not stand here"},
             {"HEAD\n{\"path\":" + endless, "2: more than 1 MiB without a key"},
             {"HEAD {\"path\":\"TREE/f/a\",\"tid\":\"1\"},\n{\"path\":\"TREE/l/a\",\"tid\":\"2\"} NEXT NEXT2 "
              "END",
              "2: a second tid for what is on line 1"},
             {"HEAD NEXT\n{\"pattern\":\"/a/../*\",\"tid\":\"1\"} NEXT2 END", "2: /a/../*: not a safe"},
             {"HEAD NEXT NEXT2 {\"package\":\"a\",\"id\":\"1\"},\n{\"package\":\"a\",\"id\":\"1\"} END",
              "2: a second id for what is on line 1"}}) {
        std::filesystem::remove("l");
        tree.link("l", "f");
        tree.file("in", fillIn(content));
        const RunResult run = runState("apply --allow-missing in");
        EXPECT_EQ(run.status, 1) << content.substr(0, 200);
        EXPECT_THAT(run.err, testing::StartsWith("zorv-label-state: in:" + reason));
    }
    EXPECT_FALSE(std::filesystem::exists(store));
}

// Names of any bytes, and on a machine with other settings, too.
TEST_F(State, ComesBackByteForByte) {
    for (const char* name : {"/f/\xff\xc3", "/f/\xc3\xa4", "/f/a b\n\"\\", "/f/\xc2\xff"}) {
        const std::string path = tree.file(name + 1);
        ASSERT_EQ(setFileTid(path.c_str(), 1, 0) + setFileInheritFlag(path.c_str(), 5, 0), 0);
    }
    for (const char* pattern : {"/f/b*", "/f/*", "/f/\xff*"}) {
        ASSERT_EQ(setFileTid((tree.path() + pattern).c_str(), 2, 1), 0);
        ASSERT_EQ(setFileSid((tree.path() + pattern).c_str(), 1, {1, 2, 3}), 0);
    }
    ASSERT_EQ(setPkgId("b", 1) + setPkgId("a\xff", 2), 0);
    ASSERT_EQ(runState("export first").status, 0);
    for (const bool isEmpty : {true, false}) {
        if (isEmpty) {
            std::filesystem::remove_all(store);
        } else {
            ASSERT_EQ(setFileTid((tree.path() + "/f/*").c_str(), 3, 1), 0);
            ASSERT_EQ(clearFileSid() + clearUserSetPkgId() + setFileTid("f/a", 9, 0), 0);
        }
        EXPECT_EQ(runState("apply first").status, 2);
        EXPECT_EQ(runState("export second").status, 0);
        EXPECT_EQ(fileContent("first"), fileContent("second"));
        EXPECT_EQ(runState("apply second").out, "nothing to do\n");
    }
}

TEST_F(State, FindsExactlyTheSpoiledLabels) {
    std::set<std::string> spoiled = {"202 right, 10 wrong, 0 failed", ""};
    for (int i = 0; i < 200; ++i) {
        tree.file("d" + std::to_string(i % 7) + "/" + std::to_string(i));
    }
    const WithoutPackages without;
    ASSERT_EQ(addTagFullSystem(tree.path().c_str(), {}), 0);
    EXPECT_EQ(wrongLabels(), (std::set<std::string>{"", "212 right, 0 wrong, 0 failed"}));
    for (int i = 0; i < 10; ++i) {
        const std::string path = tree.path("d" + std::to_string(i % 7) + "/" + std::to_string(i));
        setLabelAttribute(path, i % 2 == 0 ? "00" : std::string(200, '0'));
        spoiled.insert(path);
    }
    EXPECT_EQ(wrongLabels(), spoiled);
    EXPECT_EQ(wrongLabels(), spoiled);  // nothing was written
}

TEST_F(State, TellsWhatIsWrongWithAPolicy) {
    constexpr const char* kTable = R"(
# lines of a policy | what is found
[tid]\n/a = 0x1f\n[exclude]\n/b =                  |
# comment\n/a = 1\n[tid]\n/a = 1                     | 2: before any section
[tid]\n/a = 1\n[TID]\n/a = x                         | 3: unknown section [TID]
[tid]\n/a = 1\n\n/a                                  | 4: no "="
[exclude]\n/a                                        | 2: no "="
[tid]\n/a = zz                                       | 2: bad value "zz"
[inherit_flag]\n/a = 6                               | 2: bad value "6"
[tid]\na/* = 1                                       | 2: matches no path
[tid]\n/a = 1\n /a  = 2                              | 3: /a never wins: it stands on line 2
[tid]\n/a = 1\n/a* = 2                               | 2: /a never wins: line 3
[tid]\n/a/? = 1\n/a/* = 2                            | 2: /a/? never wins: line 3
[tid]\n/a/*b = 1\n/a/* = 2\n/a/b? = 3                |
[tid]\n/a/*b?? = 1\n/a*b?** = 2\n[exclude]\n/* =     | 2: /a/*b?? never wins: line 3
)";
    for (const Lines& row : readTable(kTable, 2)) {
        putFile(policy, row[0] + "\n");
        const RunResult run = runState("check-policy");
        EXPECT_EQ(run.status, row[1].empty() ? 0 : 2) << row[0] << run.err;
        EXPECT_EQ(split(run.out, "\n").size(), row[1].empty() ? 1U : 2U) << run.out;
        EXPECT_THAT(run.out, HasSubstr(row[1].empty() ? "" : policy + ":" + row[1])) << row[0];
    }
    std::filesystem::permissions(policy, std::filesystem::perms(0666));
    EXPECT_THAT(runState("check-policy").err, HasSubstr("refused: writable by others"));
}

// Rules that are told never to win never do, of random ones and all short texts.
TEST_F(State, AccusesNoRuleThatWins) {
    std::minstd_rand random(1);
    std::vector<std::string> paths = {"/"};
    for (size_t i = 0; i < paths.size() && paths[i].size() < 6; ++i) {
        paths.push_back(paths[i] + "a");
        paths.push_back(paths[i] + "b");
    }
    size_t found = 0;
    for (int round = 0; round < 500; ++round) {
        std::string text = "[tid]\n";
        for (unsigned int line = 2; line < 8; ++line) {
            text += "/";
            for (auto length = random() % 4; length > 0; --length) {
                text += "ab*?"[random() % 4];
            }
            text += " = " + std::to_string(line) + "\n";
        }
        std::istringstream in(text);
        const Policy rules = policyOf(parseConfigText(in), "policy");
        for (const PolicyFinding& finding : findingsOf(policyLines(text))) {
            ++found;
            EXPECT_TRUE(
                std::none_of(paths.begin(), paths.end(),
                             [&](const std::string& path) { return rules.tid(path) == finding.line; }))
                << text << finding.line << finding.text;
        }
    }
    EXPECT_GT(found, 500U);
}

TEST_F(State, RestoresWhateverTheStoreHasBecome) {
    ASSERT_EQ(setFileTid("f/a", 1, 0) + setPkgId("kept", 7), 0);
    ASSERT_EQ(runState("backup copy").status, 0);
    ASSERT_EQ(runState("export first").status, 0);
    const char* spoiled[] = {"true",                      // the journal has newer changes
                             "cp copy STORE/label.db",    // put in place, with the journal left there
                             "printf x >STORE/label.db",  // no database
                             // half a database
                             "rm STORE/label.db-wal; head -c 9000 copy >STORE/label.db"};
    for (const char* how : spoiled) {
        setFileTid("f/a", 5, 0);
        setFileTid("f/b", 6, 0);
        setPkgId("new", 7);
        shell(replaceAll(how, "STORE", store));
        const RunResult run = runState("restore copy");
        EXPECT_EQ(run.status, 2) << how << run.err;
        EXPECT_EQ(runState("export second").status, 0);
        EXPECT_EQ(fileContent("first"), fileContent("second")) << how;
        EXPECT_EQ(tidOf("f/a"), 1U) << how;
        EXPECT_EQ(run.err.find("damaged") == std::string::npos ? tidOf("f/b") : 0U, 0U) << how << run.err;
    }
    EXPECT_TRUE(std::filesystem::exists(store + "/label.db.damaged-2"));
    shell("sqlite3 " + store + "/label.db 'PRAGMA user_version = 99'");
    EXPECT_THAT(runState("restore copy").err, HasSubstr("written by a newer version"));
}

TEST_F(State, RefusesBackupsOfSomethingElse) {
    ASSERT_EQ(setFileTid("f/a", 1, 0), 0);
    ASSERT_EQ(runState("backup copy").status, 0);
    constexpr const char* kTable = R"(
# how the copy is spoiled | why it is refused
true                                                                        |
rm bad                                                                      | No such file or directory
rm bad; mkdir bad                                                           | not a regular file
: >bad                                                                      | refused: not a label store
echo x >bad                                                                 | file is not a database
truncate -s 9000 bad                                                        | malformed
sqlite3 bad 'PRAGMA user_version = 9'                                       | written by a newer version
sqlite3 bad 'DROP TABLE user_value'                                         | refused: not a label store
sqlite3 bad 'CREATE VIEW v AS SELECT 1'                                     | refused: not a label store
sqlite3 bad "UPDATE user_value SET target = x'61'"                          | what no user can have set
)";
    for (const Lines& row : readTable(kTable, 2)) {
        shell("rm -rf bad; cp copy bad; " + row[0]);
        const RunResult run = runState("restore bad");
        EXPECT_EQ(run.status, row[1].empty() ? 0 : 1) << row[0];
        EXPECT_THAT(run.err, HasSubstr(row[1].empty() ? "" : "zorv-label-state: bad: ")) << row[0];
        EXPECT_THAT(run.err, HasSubstr(row[1])) << row[0];
        EXPECT_EQ(tidOf("f/a"), 1U);
    }
}

// A listener that was at a later message would hear nothing of the next ones.
TEST_F(State, TellsListenersOfAStoreThatWentBack) {
    ASSERT_EQ(setPkgId("x", 1), 0);
    ASSERT_EQ(runState("backup copy").status, 0);
    void* listener = createSubscriber();
    ASSERT_EQ(setPkgId("x", 2) + subscribeLabelChangeMsg(listener, ""), 0);
    shell("cat copy >" + store + "/label.db; : >" + store + "/label.db-wal");
    EXPECT_EQ(nextMessage(listener), "failed");
}

// Each copy holds a change whole.
TEST_F(State, CopiesAConsistentStoreWhileOthersWrite) {
    std::atomic<bool> isOver = false;
    ASSERT_EQ(setFileTid("f/a", 1, 0), 0);
    std::thread writer([&] {
        for (uint32_t i = 1; !isOver; i = i % 100 + 1) {
            setFileTid((tree.path() + "/f/*").c_str(), i, 1);
            clearFileTid();
        }
    });
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(runState("backup copy").status, 0);
        const RunResult run = runState("restore --check copy");
        EXPECT_NE(run.status, 1) << run.err;
    }
    isOver = true;
    writer.join();
}
