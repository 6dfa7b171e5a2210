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

Lines shell(const std::string& script) {
    return executeCommand("/bin/sh", {"-c", script});
}

// What it throws, with the reason in it.
std::string failureOf(const std::function<void()>& action) {
    try {
        action();
        return "none";
    } catch (const std::runtime_error& failure) {
        return failure.what() + (dynamic_cast<const std::nested_exception*>(&failure) == nullptr
                                     ? ""
                                     : failureOf([&failure] { std::rethrow_if_nested(failure); }));
    }
}

}  // namespace

TEST(Files, AreReadAndWrittenWhole) {
    const TemporaryTree tree;
    CapturedLog log;
    for (const std::string& content : {"a\0\xFF\r\n"s, "shorter\n"s, ""s, std::string(100000, 'x')}) {
        EXPECT_TRUE(writeFile(tree.path("file"), content));
        EXPECT_EQ(readFile(tree.path("file")), content);
    }
    EXPECT_TRUE(writeFile("/dev/full", std::string(100000, 'x')));
    EXPECT_EQ(readFile(tree.path()), "");
    EXPECT_THAT(log.take(), ElementsAre());
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
/bin/sh | exit 0
/bin/sh | echo 1; echo 2; exit 2                         | | Command failed [2]: /bin/sh
/bin/sh | echo 1; kill -9 $$                             | | Command killed by signal 9: /bin/sh
/none   |                                                | | Command failed [1]: /none
sh      |                                                | | Command failed [1]: sh
        |                                                | | Command path is empty.
)";
    const auto openDescriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    CapturedLog log;
    const std::ptrdiff_t before = openDescriptors();
    for (const Lines& row : readTable(kTable, 4)) {
        std::string lines;
        for (const std::string& line : executeCommand(row[0], {"-c", unescape(row[1])})) {
            lines += (line.size() > 99 ? std::to_string(line.size()) : line) + ";";
        }
        EXPECT_EQ(lines, unescape(row[2])) << row[1];
        EXPECT_EQ(log.take(), Lines(row[3].empty() ? 0 : 1, "ERROR [executeCommand] " + row[3])) << row[1];
    }
    EXPECT_THAT(executeCommand("/bin/echo", {"a", "", "b c"}), ElementsAre("a  b c"));
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_TRUE(waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD) << "a child is left";
}

TEST(ExecuteCommand, StandsOddCallers) {
    for (unsigned int closed = 0; closed < 8; ++closed) {
        EXPECT_TRUE(holdsInChild([closed] {
            closefrom(3);
            for (int descriptor = 0; descriptor < 3; ++descriptor) {
                if ((closed >> descriptor & 1U) != 0) {
                    close(descriptor);
                }
            }  // standard output is always there, and the directory that ls reads
            return executeCommand("/bin/ls", {"/proc/self/fd"}).size() == 4 - (closed & 1U) - (closed >> 2U);
        })) << closed;
    }
    EXPECT_TRUE(holdsInChild([] {  // which opens without O_CLOEXEC, as a log may
        return dup2(STDERR_FILENO, 9) == 9 && shell("echo >&9 && echo open").empty();
    }));
    EXPECT_TRUE(holdsInChild([] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        const itimerval often = {{0, 2000}, {0, 2000}};
        return sigaction(SIGALRM, &action, nullptr) == 0 && setitimer(ITIMER_REAL, &often, nullptr) == 0 &&
               shell("printf 1; sleep 0.03; echo 2") == Lines{"12"} &&
               shell("echo x; exec >&-; sleep 0.03; exit 3").empty() &&
               std::signal(SIGCHLD, SIG_IGN) == SIG_DFL && shell("echo x; exit 3") == Lines{"x"};
    }));
    EXPECT_TRUE(holdsInChild([] {
        CapturedLog log;
        while (dup(STDERR_FILENO) >= 0) {
        }
        const Lines lines = shell("echo");
        closefrom(3);  // sanitizers need some themselves
        return lines.empty() &&
               log.take() == Lines{"ERROR [executeCommand] pipe failed: Too many open files"};
    }));
}

TEST(CommandExists, LooksAtTheOwnersExecuteBitOnly) {
    const TemporaryTree tree;
    chmod(tree.file("owner").c_str(), 0100);
    chmod(tree.file("group").c_str(), 0011);
    tree.directory("directory");
    tree.link("link", "owner");
    const std::string before = std::getenv("PATH");
    const auto found = [](const std::string& searchPath) {
        setenv("PATH", searchPath.c_str(), 1);
        std::string names;
        for (const char* name : {"owner", "group", "directory", "link", "../owner", "none", "etc"}) {
            names += commandExists(name) ? name + " "s : "";
        }
        return names;
    };
    EXPECT_EQ(found("/none:" + tree.path()), "owner directory link ");
    EXPECT_EQ(found(tree.path("directory") + ":"), "../owner ");
    EXPECT_EQ(found(":/none"), "etc ");
    EXPECT_EQ(found(""), "");
    unsetenv("PATH");
    EXPECT_FALSE(commandExists("etc"));
    setenv("PATH", before.c_str(), 1);
}

TEST(Processes, AreReadFromTexts) {
    EXPECT_THAT(
        parseKernelParameters(" ro  root=/dev/sda1 a=b=c \tq=\"x y\" ro =x "),
        ElementsAre(Pair("", ""), Pair("ro", ""), Pair("", ""), Pair("root", "/dev/sda1"), Pair("a", "b=c"),
                    Pair("\tq", "\"x"), Pair("y\"", ""), Pair("ro", ""), Pair("", "x")));
    for (const char* stat :
         {"5 (sh) S 12 5", "5 (my (odd) old prog) S 12", "5 () S 12", "5 (a ) S 12x", "5 (a) 7 12 b) S 8"}) {
        EXPECT_EQ(parseParentPid(stat), 12) << stat;
    }
    for (const char* stat :
         {"5 (a) b) S 12", "5 (a) S x", "5 (a) S 99999999999", "5 (a) S", "5 (a S 1 2 3", ""}) {
        EXPECT_EQ(parseParentPid(stat), -1) << stat;
    }
}

TEST(Processes, AreReadFromTheSystem) {
    CapturedLog log;
    const pid_t self = getpid();
    EXPECT_TRUE(getAllParent(1).empty() && getAllParent(-7).empty());
    EXPECT_THAT(log.take(), ElementsAre());
    EXPECT_THAT(getAllParent(0x7fffffff), ElementsAre());
    EXPECT_THAT(log.take(), ElementsAre("ERROR [readFile] Unable to open file, /proc/2147483647/stat",
                                        "ERROR [getAllParent] current pid 2147483647."));
    EXPECT_TRUE(holdsInChild([self] { return getAllParent(getpid()).at(0) == self; }));
    const std::string executable = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_THAT(findProcessExeFile(), testing::Contains(Pair(executable, testing::Contains(self))));
    EXPECT_EQ(parseKernelCmdline(), parseKernelParameters(split(readFile("/proc/cmdline"), "\n")[0]));
    log.take();
    EXPECT_TRUE(holdsInChildWithoutFiles([&log] {
        return findProcessExeFile().empty() && parseKernelCmdline().empty() &&
               log.take() == Lines{"ERROR [findProcessExeFile] open /proc failed.",
                                   "ERROR [parseKernelCmdline] open /proc/cmdline failed."};
    }));
}

TEST(ZmqSocket, NeedsItsLibrary) {
    EXPECT_TRUE(holdsInChildWithoutFiles([] {
        return failureOf([] { ZMQSocket socket(Type::kPair); }) ==
               "Failed to create ZMQ context." LIBZMQ_SONAME
               ": cannot open shared object file: No such file or directory";
    }));
}

TEST(ZmqSocket, CarriesMessagesAndOutlivesFailures) {
    const TemporaryTree tree;
    const std::string endpoint = "ipc://" + tree.path("socket");
    ZMQSocket publisher(Type::kXPub);  // is told of subscriptions, so that nothing is published too early
    ZMQSocket subscriber(Type::kSub);
    std::string failures;
    for (const std::function<void()>& action : std::initializer_list<std::function<void()>>{
             [&] { publisher.bind("junk"); }, [&] { subscriber.connect("junk"); },
             [&] { subscriber.send("x", false); }, [] { ZMQSocket(Type::kPush).recv(); },
             [] { ZMQSocket(Type::kPush).subscribe("x"); },
             [] { ZMQSocket socket(static_cast<Type>(99)); }}) {
        failures += failureOf(action);
    }
    EXPECT_EQ(failures,
              "Failed to bind socket.Failed to connect socket.Failed to send message.Failed to receive "
              "message.Failed to set subscription filter.Failed to create ZMQ socket.");
    publisher.bind(endpoint);
    subscriber.connect(endpoint);
    subscriber.subscribe("a");
    EXPECT_EQ(publisher.recv(), "\x01"s + "a");
    const Lines messages = {"b1", "a\0b"s, std::string(1000000, 'x'), ""};
    for (size_t i = 0; i < messages.size(); ++i) {
        publisher.send(messages[i], i == 1 || i == 2);  // the last three are one message
    }
    for (size_t i = 1; i < messages.size(); ++i) {
        EXPECT_EQ(subscriber.recv(), messages[i]);
    }
    subscriber.subscribe("");
    EXPECT_EQ(publisher.recv(), "\x01");
    publisher.send("b2", false);
    EXPECT_EQ(subscriber.recv(), "b2");
}
