#include "log/logger.h"

#include <cerrno>
#include <filesystem>
#include <functional>
#include <sys/stat.h>

#include <gtest/gtest.h>
#include <log4cpp/Category.hh>
#include <log4cpp/Configurator.hh>

#include "tests/support/captured_log.h"
#include "tests/support/run.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

namespace fs = std::filesystem;
using namespace std::string_literals;

namespace {

const std::string kFallback = "/var/log/zorv/zorv_label_manager.log";

class LoggerTest : public testing::Test {
 protected:
    LoggerTest() { std::filesystem::remove(kFallback); }
    ~LoggerTest() override { std::filesystem::remove(kLogProperties); }

    std::string appender(const std::string& name) const { return fileAppender(name, tree.path(name)); }

    const TemporaryTree tree;
};

// In a process of its own, with log4cpp as if new.
RunResult withLogger(const std::function<void(Logger& logger)>& use) {
    return runInChild([&use] {
        log4cpp::Category::shutdown();
        umask(0);
        errno = EROFS;
        Logger logger;
        const bool leavesTheReason = errno == EROFS;  // which the first message may be about
        use(logger);
        return leavesTheReason ? 0 : 1;
    });
}

}  // namespace

TEST_F(LoggerTest, FallsBackToItsOwnFile) {
    const auto use = [](Logger& logger) {
        logger.debug("t", 1, "filtered");
        logger.info("t", 2, "n=%d", 5);
        logger.always("t", 3, "always");
    };
    const RunResult missing = withLogger(use);
    EXPECT_EQ(missing.status, 0);
    EXPECT_EQ(missing.out, "read log config error.\n");
    EXPECT_EQ(missing.err, "Failed to open config file: "s + kLogProperties + '\n');
    putFile(kLogProperties, "log4cpp.rootCategory=DEBUG, nowhere\n");
    const RunResult broken = withLogger(use);
    EXPECT_EQ(broken.out + broken.err, "read log config error.\n");
    const std::string once = "TIME THREAD [INFO] [t:2] n=5 \nTIME THREAD [INFO] [t:3] always \n";
    EXPECT_EQ(replaceAll(fileContent(kFallback),
                         "[0-9]{4}(-[0-9]{2}){2} [0-9]{2}(:[0-9]{2}){2}\\.[0-9]{3} [0-9]+ ", "TIME THREAD "),
              once + once);
    EXPECT_EQ(fs::status(kFallback).permissions(), fs::perms{0644});
}

TEST_F(LoggerTest, IsConfiguredByTheProperties) {
    putFile(kLogProperties, "log4cpp.rootCategory=WARN, main\nlog4cpp.category.INFO=INFO, always\n" +
                                appender("main") + appender("always"));
    const std::string bad = tree.file("main", "earlier\n") + "/below";
    putFile(kLogProperties, fileContent(kLogProperties) + "log4cpp.appender.main.x.fileName=" + bad +
                                "\nlog4cpp.appender.main.y.fileName=" + tree.path("missing") +
                                "\nlog4cpp.appender.main.z.fileName=" + tree.directory("directory"));
    chmod(tree.path("main").c_str(), 0600);
    const RunResult run = withLogger([](Logger& logger) {
        logger.debug("t", 1, "filtered");
        logger.info("t", 2, "filtered");
        logger.warn("t", 3, "n=%d", 5);
        logger.error("t", 4, "%s%%", "e");
        logger.fatal("t", 5, "f");
        logger.always("t", 6, "%s", "always");
    });
    EXPECT_EQ(run.out + run.err, "chmod failed for " + bad + ": Not a directory\n");
    EXPECT_EQ(fileContent(tree.path("main")), "earlier\nWARN [t:3] n=5\nERROR [t:4] e%\nFATAL [t:5] f\n");
    EXPECT_EQ(fileContent(tree.path("always")), "INFO [t:6] always\n");
    EXPECT_EQ(fs::status(tree.path("main")).permissions(), fs::perms{0640});
    EXPECT_EQ(fs::status(tree.path("always")).permissions(), fs::perms{0640});
    EXPECT_EQ(fs::status(tree.path("directory")).permissions(), fs::perms{0755});
}

TEST_F(LoggerTest, KeepsTheModeOfFilesMadeByRolling) {
    std::string properties = fileContent(TESTS_DIRECTORY "/../packaging/etc/zorv-label-log.properties");
    properties = replaceAll(properties, "fileName=.*", "fileName=" + tree.path("log"));
    putFile(kLogProperties, replaceAll(properties, "maxFileSize=.*", "maxFileSize=100"));
    withLogger([](Logger& logger) {
        for (int line = 0; line < 4; ++line) {
            logger.error("t", line, "%s", std::string(100, 'x').c_str());
        }
    });
    const RunResult open = withLogger([](Logger& logger) {  // and from programs that are run
        logger.error("t", 1, "first");
        static_cast<void>(std::system("ls -l /proc/self/fd"));
    });
    EXPECT_EQ(open.out.find(tree.path()), std::string::npos) << open.out;
    for (const char* name : {"log", "log.1", "log.2"}) {
        EXPECT_EQ(fs::status(tree.path(name)).permissions(), fs::perms{0640}) << name;
    }
}

TEST_F(LoggerTest, PutsWhatItIsGivenOnOneLine) {
    constexpr const char* kTable = R"(
a\x0aERROR [t:9] forged\x0d | a\012ERROR [t:9] forged\015
\x01\x1b[2J\x1f\x7f\x09. | \001\033[2J\037\177\x09.
\xc3\xa9\x80 ~%s\012 | \xc3\xa9\x80 ~%s\012
)";
    const std::string properties = tree.file("p", "log4cpp.rootCategory=ERROR, main\n" + appender("main"));
    std::string expected;
    const std::string longText(1100, 'x');
    for (const Lines& cells : readTable(kTable, 2)) {
        expected += "ERROR [t:1] " + unescape(cells[1]) + longText + '\n';
    }
    runInChild([&] {
        Logger logger(properties);
        for (const Lines& cells : readTable(kTable, 2)) {
            logger.error("t", 1, "%s%s", unescape(cells[0]).c_str(), longText.c_str());
        }
        return 0;
    });
    EXPECT_EQ(fileContent(tree.path("main")), expected);
}

TEST_F(LoggerTest, FormatsInTwoStagesFromAnyProperties) {
    EXPECT_THROW(Logger(tree.path("missing")), log4cpp::ConfigureFailure);
    const std::string properties = tree.file("p", "log4cpp.rootCategory=ERROR, main\n" + appender("main"));
    const std::string x(2000, 'x');
    runInChild([&] {
        umask(0);
        Logger logger(properties);
        logger.error("a%%b", 1, "%s", "text");
        logger.error("t", 2, "%s", x.c_str());
        logger.error("t", 3, (x + "%s").c_str(), "cut off");
        logger.error("t", 4, (x.substr(0, 1016) + "%s").c_str(), "cut in two");
        logger.error("t", 5, (x.substr(0, 1015) + "%s").c_str(), "just fits");
        return 0;
    });
    EXPECT_EQ(fileContent(tree.path("main")), "ERROR [a%b:1] text\nERROR [t:2] " + x + "\nERROR [t:3] " +
                                                  x.substr(0, 1017) + "\nERROR [t:4] " + x.substr(0, 1016) +
                                                  "%\nERROR [t:5] " + x.substr(0, 1015) + "just fits\n");
    EXPECT_NE(fs::status(tree.path("main")).permissions(), fs::perms{0640});
}

TEST_F(LoggerTest, FindsLogFilesInProperties) {
    constexpr const char* kTable = R"(
log4cpp.appender.A.fileName = /var/log/a.log | /var/log/a.log
log4cpp.appender.B.fileName=/b\n\tlog4cpp.appender.A.fileName=/a b\t\nlog4cpp.appender.C.fileName=/b | /a b,/b
log4cpp.appender.A.fileName==x=y | =x=y
log4cpp.appender.fileName=/x | /x
\n  # log4cpp.appender.A.fileName=/x
log4cpp.appender.A.fileName
log4cpp.appender.A.fileName.old=/x
log4cpp.appenderA.fileName=/x
my.log4cpp.appender.A.fileName=/x
)";
    for (const Lines& cells : readTable(kTable, 2)) {
        const std::string path = tree.file("properties", replaceAll(cells[0], "\\\\t", "\t"));
        std::string names;
        for (const std::string& name : Logger::getLogFilePathsFromConfig(path)) {
            names += (names.empty() ? "" : ",") + name;
        }
        EXPECT_EQ(names, cells[1]) << cells[0];
    }
}
