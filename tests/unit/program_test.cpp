#include <cerrno>
#include <stdexcept>

#include <gtest/gtest.h>
#include <zmq.h>

#include "msg/zmq_socket.h"
#include "tests/support/table.h"

// This program's own functions are called in place of those of the libraries. They write
// down their names and do nothing.
namespace {

std::string calls;
std::string failing;

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
