#include "msg/zmq_socket.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <stdexcept>

#include <zmq.h>

#include "base/shared_library.h"

namespace {

constexpr bool isZmqNumber(ZMQSocket::socketType type, int number) {
    return static_cast<int>(type) == number;
}

using Type = ZMQSocket::socketType;
static_assert(isZmqNumber(Type::kPair, ZMQ_PAIR) && isZmqNumber(Type::kPub, ZMQ_PUB) &&
              isZmqNumber(Type::kSub, ZMQ_SUB) && isZmqNumber(Type::kReq, ZMQ_REQ) &&
              isZmqNumber(Type::kRep, ZMQ_REP) && isZmqNumber(Type::kDealer, ZMQ_DEALER) &&
              isZmqNumber(Type::kRouter, ZMQ_ROUTER) && isZmqNumber(Type::kPull, ZMQ_PULL) &&
              isZmqNumber(Type::kPush, ZMQ_PUSH) && isZmqNumber(Type::kXPub, ZMQ_XPUB) &&
              isZmqNumber(Type::kXSub, ZMQ_XSUB) && isZmqNumber(Type::kStream, ZMQ_STREAM));

// Brings a dozen other libraries.
struct ZeroMq : SharedLibrary {
    ZeroMq() : SharedLibrary(LIBZMQ_SONAME) {}

    ZORV_LIBRARY_FUNCTION(zmq_bind);
    ZORV_LIBRARY_FUNCTION(zmq_close);
    ZORV_LIBRARY_FUNCTION(zmq_connect);
    ZORV_LIBRARY_FUNCTION(zmq_ctx_destroy);
    ZORV_LIBRARY_FUNCTION(zmq_ctx_new);
    ZORV_LIBRARY_FUNCTION(zmq_msg_close);
    ZORV_LIBRARY_FUNCTION(zmq_msg_data);
    ZORV_LIBRARY_FUNCTION(zmq_msg_init);
    ZORV_LIBRARY_FUNCTION(zmq_msg_init_size);
    ZORV_LIBRARY_FUNCTION(zmq_msg_size);
    ZORV_LIBRARY_FUNCTION(zmq_recvmsg);
    ZORV_LIBRARY_FUNCTION(zmq_sendmsg);
    ZORV_LIBRARY_FUNCTION(zmq_setsockopt);
    ZORV_LIBRARY_FUNCTION(zmq_socket);
};

const ZeroMq& zeroMq() {
    static const ZeroMq library;
    return library;
}

class Message {
 public:
    Message() { zeroMq().zmq_msg_init(&message); }
    ~Message() { zeroMq().zmq_msg_close(&message); }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    // False when there is no memory for it.
    bool assign(const std::string& text) {
        if (zeroMq().zmq_msg_init_size(&message, text.size()) != 0) {
            zeroMq().zmq_msg_init(&message);
            return false;
        }
        std::memcpy(zeroMq().zmq_msg_data(&message), text.data(), text.size());
        return true;
    }

    std::string text() {
        return {static_cast<const char*>(zeroMq().zmq_msg_data(&message)), zeroMq().zmq_msg_size(&message)};
    }

    zmq_msg_t* get() { return &message; }

 private:
    zmq_msg_t message;
};

void require(bool succeeded, const char* message) {
    if (!succeeded) {
        throw std::runtime_error(message);
    }
}

void* newContext() {
    try {
        return zeroMq().zmq_ctx_new();
    } catch (const std::runtime_error&) {
        std::throw_with_nested(std::runtime_error("Failed to create ZMQ context."));
    }
}

void destroyContext(void* context) {
    while (zeroMq().zmq_ctx_destroy(context) != 0 && errno == EINTR) {
    }
}

void closeSocket(void* socket) {
    zeroMq().zmq_close(socket);
}

}  // namespace

ZMQSocket::ZMQSocket(socketType type) : context(newContext(), destroyContext), socket(nullptr, closeSocket) {
    require(context != nullptr, "Failed to create ZMQ context.");
    socket.reset(zeroMq().zmq_socket(context.get(), static_cast<int>(type)));
    require(socket != nullptr, "Failed to create ZMQ socket.");
}

ZMQSocket::~ZMQSocket() = default;

void ZMQSocket::bind(const std::string& endpoint) {
    require(zeroMq().zmq_bind(socket.get(), endpoint.c_str()) == 0, "Failed to bind socket.");
}

void ZMQSocket::connect(const std::string& endpoint) {
    require(zeroMq().zmq_connect(socket.get(), endpoint.c_str()) == 0, "Failed to connect socket.");
}

void ZMQSocket::send(const std::string& message, bool more) {
    Message part;
    require(
        part.assign(message) && zeroMq().zmq_sendmsg(socket.get(), part.get(), more ? ZMQ_SNDMORE : 0) >= 0,
        "Failed to send message.");
}

std::string ZMQSocket::recv() {
    Message part;
    require(zeroMq().zmq_recvmsg(socket.get(), part.get(), 0) >= 0, "Failed to receive message.");
    return part.text();
}

void ZMQSocket::subscribe(const std::string& topic) {
    require(zeroMq().zmq_setsockopt(socket.get(), ZMQ_SUBSCRIBE, topic.data(), topic.size()) == 0,
            "Failed to set subscription filter.");
}
