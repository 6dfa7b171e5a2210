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

unsigned int modeOf(const std::string& path) {
    return static_cast<unsigned int>(std::filesystem::status(path).permissions());
}

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
    EXPECT_EQ(modeOf(kFallback), 0644U);
}

TEST_F(LoggerTest, IsConfiguredByTheProperties) {
    const std::string bad = tree.file("main", "earlier\n") + "/below";
    putFile(kLogProperties, "log4cpp.rootCategory=WARN, main\nlog4cpp.category.INFO=INFO, always\n" +
                                appender("main") + appender("always") + "log4cpp.appender.main.x.fileName=" +
                                bad + "\nlog4cpp.appender.main.y.fileName=" + tree.path("missing") +
                                "\nlog4cpp.appender.main.z.fileName=" + tree.directory("directory") +
                                "\n # log4cpp.appender.A.fileName=/dev/null/x" +
                                "\nlog4cpp.appender.main.fileName.old=/dev/null/x");
    chmod(tree.path("main").c_str(), 0600);
    const RunResult run = withLogger([](Logger& logger) {
        logger.info("t", 2, "filtered");
        logger.warn("t", 3, "n=%d", 5);
        logger.error("t", 4, "%s%%", "e");
        logger.fatal("t", 5, "f");
        logger.always("t", 6, "%s", "always");
    });
    EXPECT_EQ(run.out + run.err, "chmod failed for " + bad + ": Not a directory\n");
    EXPECT_EQ(fileContent(tree.path("main")), "earlier\nWARN [t:3] n=5\nERROR [t:4] e%\nFATAL [t:5] f\n");
    EXPECT_EQ(fileContent(tree.path("always")), "INFO [t:6] always\n");
    EXPECT_EQ(modeOf(tree.path("main")), 0640U);
    EXPECT_EQ(modeOf(tree.path("directory")), 0755U);
}

TEST_F(LoggerTest, KeepsTheModeOfFilesMadeByRolling) {
    std::string properties = fileContent(TESTS_DIRECTORY "/../packaging/etc/zorv-label-log.properties");
    properties = replaceAll(properties, "zorv.log.directory=.*", "zorv.log.directory=" + tree.path());
    putFile(kLogProperties, replaceAll(properties, "maxFileSize=.*", "maxFileSize=100"));
    const RunResult run = withLogger([](Logger& logger) {
        static_cast<void>(std::system("ls -l /proc/self/fd"));  // programs that are run lack the file
        for (int line = 0; line < 4; ++line) {
            logger.error("t", line, "%s", std::string(100, 'x').c_str());
        }
    });
    EXPECT_EQ((run.out + run.err).find(tree.path()), std::string::npos) << run.out << run.err;
    for (const char* name : {"", ".1", ".2"}) {
        EXPECT_EQ(modeOf(tree.path(std::string("zorv_label_manager.log") + name)), 0640U) << name;
    }
}

TEST_F(LoggerTest, FormatsInTwoStagesOnOneLine) {
    EXPECT_THROW(Logger(tree.path("missing")), log4cpp::ConfigureFailure);
    const std::string properties = tree.file("p", "log4cpp.rootCategory=ERROR, main\n" + appender("main"));
    const std::string x(2000, 'x');
    const std::string y(1015, 'y');
    runInChild([&] {
        umask(0);
        Logger logger(properties);
        logger.error("t", 1, "a\nERROR [t:9] forged\r\x01\x1b[2J\x7f\t.%s", x.c_str());
        logger.error("a%%b", 2, "%s", "\xc3\xa9\x80 ~%s\\012");
        logger.error("t", 3, (x + "%s").c_str(), "cut off");
        logger.error("t", 4, (y + "y%s").c_str(), "cut in two");
        logger.error("t", 5, (y + "%s").c_str(), "just fits");
        return 0;
    });
    EXPECT_EQ(fileContent(tree.path("main")),
              "ERROR [t:1] a\\012ERROR [t:9] forged\\015\\001\\033[2J\\177\t." + x +
                  "\nERROR [a%b:2] \xc3\xa9\x80 ~%s\\012\nERROR [t:3] " + x.substr(0, 1017) +
                  "\nERROR [t:4] " + y + "y%\nERROR [t:5] " + y + "just fits\n");
    EXPECT_NE(modeOf(tree.path("main")), 0640U);
}
