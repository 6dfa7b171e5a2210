#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "common/command.h"
#include "common/file_utils.h"
#include "common/process_info.h"
#include "common/process_parsing.h"
#include "msg/zmq_socket.h"
#include "tests/support/captured_log.h"
#include "tests/support/run.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

using testing::ElementsAre;
using testing::Pair;
using Type = ZMQSocket::socketType;
using namespace std::string_literals;

namespace {

// What it throws, with the reasons in it.
std::string failureOf(const std::function<void()>& action) {
    try {
        action();
        return "";
    } catch (const std::runtime_error& failure) {
        return failure.what() + failureOf([&failure] { std::rethrow_if_nested(failure); });
    }
}

}  // namespace

TEST(Files, AreReadAndWrittenWhole) {
    const TemporaryTree tree;
    CapturedLog log;
    for (const std::string& content : {"a\0\xFF\r\n"s, ""s, std::string(100000, 'x')}) {
        EXPECT_TRUE(writeFile(tree.path("file"), content));
        EXPECT_EQ(readFile(tree.path("file")), content);
    }
    EXPECT_TRUE(writeFile("/dev/full", "x") && readFile(tree.path()).empty() && log.take().empty());
    EXPECT_TRUE(!writeFile("/none/file", "x") && readFile("/none/file").empty());
    EXPECT_THAT(log.take(), ElementsAre("ERROR [writeFile] Unable to open file for writing, /none/file",
                                        "ERROR [readFile] Unable to open file, /none/file"));
}

TEST(ExecuteCommand, AnswersLinesOrOneError) {
    constexpr const char* kTable = R"(
# path | script | the lines, or their lengths, each with a ";" | log
/bin/sh | printf 'a\r;;last' \x7C tr ';' '\012'; echo >&2 | a\x0D;;last;
/bin/sh | printf 'a\0b;\0c;d;' \x7C tr ';' '\012'        | a;;d;
/bin/sh | printf %3000s; echo; printf %1023s; echo       | 1023;1023;954;1023;;
/bin/sh | echo 1; echo 2; exit 2                         | | Command failed [2]: /bin/sh
/bin/sh | kill -9 $$                                     | | Command killed by signal 9: /bin/sh
/none   |                                                | | Command failed [1]: /none
        |                                                | | Command path is empty.
)";
    CapturedLog log;
    const int before = dup(STDIN_FILENO);
    close(before);
    for (const Lines& row : readTable(kTable, 4)) {
        std::string lines;
        for (const std::string& line : executeCommand(row[0], {"-c", unescape(row[1])})) {
            lines += (line.size() > 99 ? std::to_string(line.size()) : line) + ";";
        }
        EXPECT_EQ(lines, unescape(row[2])) << row[1];
        EXPECT_EQ(log.take(), Lines(row[3].empty() ? 0 : 1, "ERROR [executeCommand] " + row[3])) << row[1];
    }
    EXPECT_THAT(executeCommand("/bin/echo", {"a", "", "b c"}), ElementsAre("a  b c"));
    const int after = dup(STDIN_FILENO);
    close(after);
    EXPECT_EQ(after, before) << "a descriptor is left";
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
}

TEST(ExecuteCommand, StandsOddCallers) {
    const auto shell = [](const std::string& script) { return executeCommand("/bin/sh", {"-c", script}); };
    for (unsigned int closed = 0; closed < 8; ++closed) {
        EXPECT_TRUE(holdsInChild([closed] {
            closefrom(3);
            for (int descriptor = 0; descriptor < 3; ++descriptor) {
                close((closed >> descriptor & 1U) != 0 ? descriptor : -1);
            }  // standard output is always there, and the directory that ls reads
            return executeCommand("/bin/ls", {"/proc/self/fd"}).size() == 4 - (closed & 1U) - (closed >> 2U);
        })) << closed;
    }
    EXPECT_TRUE(holdsInChild([&] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        const itimerval often = {{0, 2000}, {0, 2000}};
        return sigaction(SIGALRM, &action, nullptr) == 0 && setitimer(ITIMER_REAL, &often, nullptr) == 0 &&
               shell("printf 1; sleep 0.03; echo 2") == Lines{"12"} &&
               shell("echo x; exec >&-; sleep 0.03; exit 3").empty() &&
               std::signal(SIGCHLD, SIG_IGN) == SIG_DFL && shell("echo x; exit 3") == Lines{"x"};
    }));
}

TEST(CommandExists, LooksAtTheOwnersExecuteBitOnly) {
    const TemporaryTree tree;
    chmod(tree.file("owner").c_str(), 0100);
    chmod(tree.file("group").c_str(), 0011);
    const std::string before = std::getenv("PATH");
    const auto finds = [](const std::string& searchPath, const std::string& name) {
        setenv("PATH", searchPath.c_str(), 1);
        return commandExists(name);
    };
    EXPECT_TRUE(finds("/none:" + tree.path(), "owner") && finds("/etc:", "../etc") && finds(":/none", "etc"));
    EXPECT_FALSE(finds(tree.path(), "group") || finds("/none:", "etc") || finds("", "etc"));
    unsetenv("PATH");
    EXPECT_FALSE(commandExists("etc"));
    setenv("PATH", before.c_str(), 1);
}

TEST(Processes, AreReadFromTexts) {
    EXPECT_THAT(parseKernelParameters(" ro  root=/dev/sda1 a=b=c \tq=\"x y\" =x "),
                ElementsAre(Pair("", ""), Pair("ro", ""), Pair("", ""), Pair("root", "/dev/sda1"),
                            Pair("a", "b=c"), Pair("\tq", "\"x"), Pair("y\"", ""), Pair("", "x")));
    constexpr const char* kTable = R"(
5 (my (odd) old prog) S 12  | 12
5 (a) 7 12 b) S 8           | 12
5 (a) b) S 12               | -1
5 (a) S 99999999999         | -1
5 (a) S                     | -1
5 (a S 1 2 3                | -1
)";
    for (const Lines& row : readTable(kTable, 2)) {
        EXPECT_EQ(parseParentPid(row[0]), std::stoi(row[1])) << row[0];
    }
}

TEST(Processes, AreReadFromTheSystem) {
    CapturedLog log;
    const pid_t self = getpid();
    EXPECT_TRUE(getAllParent(1).empty() && getAllParent(-7).empty() && log.take().empty());
    EXPECT_THAT(getAllParent(0x7fffffff), ElementsAre());
    EXPECT_THAT(log.take(), ElementsAre("ERROR [readFile] Unable to open file, /proc/2147483647/stat",
                                        "ERROR [getAllParent] current pid 2147483647."));
    EXPECT_TRUE(holdsInChild([self] {
        const auto both = findProcessExeFile()[std::filesystem::read_symlink("/proc/self/exe")];
        return getAllParent(getpid()).at(0) == self && std::count(both.begin(), both.end(), self) == 1 &&
               std::count(both.begin(), both.end(), getpid()) == 1;
    }));
    EXPECT_EQ(parseKernelCmdline(), parseKernelParameters(split(readFile("/proc/cmdline"), "\n")[0]));
    log.take();
    EXPECT_TRUE(holdsInChild([&log] {
        return chroot("/var/log/zorv") == 0 && findProcessExeFile().empty() && parseKernelCmdline().empty() &&
               log.take() == Lines{"ERROR [findProcessExeFile] open /proc failed.",
                                   "ERROR [parseKernelCmdline] open /proc/cmdline failed."};
    }));
}

TEST(ZmqSocket, CarriesMessagesAndOutlivesFailures) {
    EXPECT_TRUE(holdsInChild([] {
        return chroot("/var/log/zorv") == 0 &&
               failureOf([] { ZMQSocket socket(Type::kPair); }) ==
                   "Failed to create ZMQ context." LIBZMQ_SONAME
                   ": cannot open shared object file: No such file or directory";
    }));
    const TemporaryTree tree;
    const std::string endpoint = "ipc://" + tree.path("socket");
    ZMQSocket publisher(Type::kXPub);  // is told of subscriptions, so that nothing is published too early
    ZMQSocket subscriber(Type::kSub);
    EXPECT_EQ(failureOf([&] { publisher.bind("junk"); }), "Failed to bind socket.");
    EXPECT_EQ(failureOf([&] { subscriber.connect("junk"); }), "Failed to connect socket.");
    EXPECT_EQ(failureOf([&] { publisher.subscribe("x"); }), "Failed to set subscription filter.");
    publisher.bind(endpoint);
    subscriber.connect(endpoint);
    subscriber.subscribe("a");
    EXPECT_EQ(publisher.recv(), "\x01"s + "a");
    publisher.send("b1", false);
    const Lines parts = {"a\0b"s, std::string(1000000, 'x'), ""};
    for (const std::string& part : parts) {
        publisher.send(part, !part.empty());
    }
    for (const std::string& part : parts) {
        EXPECT_EQ(subscriber.recv(), part);
    }
}
