#include <cerrno>
#include <cstdlib>
#include <new>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <log4cpp/AppenderSkeleton.hh>
#include <log4cpp/Category.hh>
#include <openssl/evp.h>
#include <zmq.h>

#include "common/config_file.h"
#include "common/sm3_hash.h"
#include "common/string_utils.h"
#include "label/label.h"
#include "log/logger.h"
#include "msg/zmq_socket.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

// This program's own functions are called in place of those of the libraries that the
// common library loads. They write down their names and do nothing.
namespace {

std::string calls;
std::string failing;
Lines logged;

bool succeeds(const std::string& name) {
    calls += (calls.empty() ? "" : " ") + name;
    return name != failing;
}

// A failure is a signal that came once: who tries again succeeds.
int status(const char* name) {
    errno = EINTR;
    if (succeeds(name)) {
        return 0;
    }
    failing.clear();
    return -1;
}

}  // namespace

void* zmq_ctx_new() {
    return succeeds("ctx_new") ? &calls : nullptr;
}
void* zmq_socket(void*, int) {
    return succeeds("socket") ? &failing : nullptr;
}
void* zmq_msg_data(zmq_msg_t* message) {
    return message;
}
size_t zmq_msg_size(const zmq_msg_t*) {
    return 0;
}
int zmq_sendmsg(void*, zmq_msg_t*, int flags) {
    return status(flags == ZMQ_SNDMORE ? "sendmsg_more" : "sendmsg");
}
#define STATUS_CALL(name, ...)    \
    int zmq_##name(__VA_ARGS__) { \
        return status(#name);     \
    }
STATUS_CALL(ctx_destroy, void*)
STATUS_CALL(close, void*)
STATUS_CALL(msg_init, zmq_msg_t*)
STATUS_CALL(msg_init_size, zmq_msg_t*, size_t)
STATUS_CALL(msg_close, zmq_msg_t*)
STATUS_CALL(recvmsg, void*, zmq_msg_t*, int)

// All of them fail, and none is asked.
const EVP_MD* EVP_get_digestbyname(const char* name) {
    return succeeds(name) ? reinterpret_cast<const EVP_MD*>(&calls) : nullptr;
}
EVP_MD_CTX* EVP_MD_CTX_new() {
    return reinterpret_cast<EVP_MD_CTX*>(succeeds("new") ? &calls : nullptr);
}
int EVP_DigestInit_ex(EVP_MD_CTX*, const EVP_MD*, ENGINE*) {
    return succeeds("init") ? 0 : 1;
}
int EVP_DigestUpdate(EVP_MD_CTX*, const void*, size_t) {
    return succeeds("update") ? 0 : 1;
}
int EVP_DigestFinal_ex(EVP_MD_CTX*, unsigned char*, unsigned int*) {
    return succeeds("final") ? 0 : 1;
}
void EVP_MD_CTX_free(EVP_MD_CTX*) {
    succeeds("free");
}

bool hasMemory = true;

// Not in line, where a compiler takes malloc() and delete, or new and free(), for a
// mismatch.
__attribute__((noinline)) void* operator new(size_t size) {
    void* memory = hasMemory ? std::malloc(size) : nullptr;
    return memory != nullptr ? memory : throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
    operator delete(memory);
}

// Names that the common library has too, for its own calls.
std::string trim(const std::string&) {
    succeeds("trim");
    return "";
}
void Logger::error(const char*, int, const char*, ...) {
    succeeds("error");
}

// Takes what the common library logs.
class Log : public log4cpp::AppenderSkeleton {
 public:
    Log() : AppenderSkeleton("Log") {
        Label::fromString("");  // whose line has the log set up
        log4cpp::Category::getRoot().addAppender(*this);
        logged.clear();
    }
    ~Log() override { log4cpp::Category::getRoot().removeAppender(this); }
    void close() override {}
    bool requiresLayout() const override { return false; }
    void setLayout(log4cpp::Layout*) override {}

 protected:
    void _append(const log4cpp::LoggingEvent& event) override {
        logged.push_back(replaceAll(event.message, ":[0-9]+\\]", "]"));
    }
};

TEST(Program, ChangesNothingForTheLibrary) {
    const Log log;
    const TemporaryTree tree;
    calls.clear();
    failing.clear();
    EXPECT_EQ(parseConfig(tree.file("f", "[s]\n k = v \n")).at("s").at("k"), "v");
    EXPECT_TRUE(parseConfig(tree.path("none")).empty());
    EXPECT_THAT(logged, testing::ElementsAre(testing::EndsWith(tree.path("none"))));
    EXPECT_EQ(calls, "");
    EXPECT_EQ(trim("a"), "");
    EXPECT_EQ(calls, "trim");
}

TEST(Program, HasItsOwnFunctionsCalled) {
    constexpr const char* kTable = R"(
# which one fails | calls | what is thrown or logged
| ctx_new socket msg_init_size sendmsg_more msg_close msg_init recvmsg msg_close close ctx_destroy
ctx_new | ctx_new | Failed to create ZMQ context.
socket | ctx_new socket ctx_destroy | Failed to create ZMQ socket.
msg_init_size | ctx_new socket msg_init_size close ctx_destroy | Failed to send message.
sendmsg_more | ctx_new socket msg_init_size sendmsg_more msg_close close ctx_destroy | Failed to send message.
recvmsg | ctx_new socket msg_init_size sendmsg_more msg_close msg_init recvmsg msg_close close ctx_destroy | Failed to receive message.
ctx_destroy | ctx_new socket msg_init_size sendmsg_more msg_close msg_init recvmsg msg_close close ctx_destroy ctx_destroy |
)";
    for (const Lines& row : readTable(kTable, 3)) {
        failing = row[0];
        calls.clear();
        std::string failure;
        try {
            ZMQSocket socket(ZMQSocket::socketType::kPair);
            socket.send("text", true);
            socket.recv();
        } catch (const std::runtime_error& error) {
            failure = error.what();
        }
        EXPECT_EQ(calls, row[1]) << row[0];
        EXPECT_EQ(failure, row[2]) << row[0];
    }
}

TEST(Program, HasNoDigest) {
    const Log log;
    for (const auto& [call, expected] : std::vector<std::pair<std::string, std::string>>{
             {"SM3", "SM3"}, {"new", "SM3 new"}, {"", "SM3 new init update final free"}}) {
        failing = call;
        calls.clear();
        EXPECT_EQ(getSM3HashLast32Bits("abc"), 0U);
        EXPECT_EQ(calls, expected);
    }
    failing = "SM3";
    EXPECT_EQ(getSM3HashLast64Bits("abc"), 0U);
    const std::string unsupported = "[getSM3HashValue] Unsupported hash function SM3";
    const std::string tooShort = "[getSM3HashLast32Bits] Hash string is too short";
    EXPECT_THAT(logged, testing::ElementsAre(unsupported, tooShort, tooShort, tooShort, unsupported,
                                             "[getSM3HashLast64Bits] hash string is too short"));
}

TEST(Program, GetsNoExceptionOfItsLog) {
    const Log log;
    unsigned char buffer[24];
    for (const bool canLog : {true, false}) {
        hasMemory = canLog;
        const size_t written = Label().serializeToBuffer(nullptr, 25) + Label().serializeToBuffer(buffer, 24);
        hasMemory = true;
        EXPECT_EQ(written, 0U);
    }
    const std::string tag = "[serializeToBuffer] ";
    EXPECT_THAT(logged,
                testing::ElementsAre(tag + "Buffer pointer is null",
                                     tag + "Buffer size is insufficient. Required: 25, provided: 24"));
}
