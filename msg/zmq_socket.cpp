#include "msg/zmq_socket.h"

#include <cerrno>
#include <cstddef>
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

ZORV_LOADED_LIBRARY_NOTE("messages", "Message sockets", LIBZMQ_SONAME);

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

void require(bool succeeded, const char* message) {
    if (!succeeded) {
        throw std::runtime_error(message);
    }
}

// An empty message to receive into, or a copy of a text to send.
class Message {
 public:
    Message() { zeroMq().zmq_msg_init(&message); }
    explicit Message(const std::string& text) {
        require(zeroMq().zmq_msg_init_size(&message, text.size()) == 0, "Failed to send message.");
        std::memcpy(zeroMq().zmq_msg_data(&message), text.data(), text.size());
    }
    ~Message() { zeroMq().zmq_msg_close(&message); }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    std::string text() {
        return {static_cast<const char*>(zeroMq().zmq_msg_data(&message)), zeroMq().zmq_msg_size(&message)};
    }

    zmq_msg_t* get() { return &message; }

 private:
    zmq_msg_t message;
};

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

}  // namespace

ZMQSocket::ZMQSocket(socketType type) : context(newContext()) {
    // Other programs of the framework are compiled with this layout.
    static_assert(sizeof(ZMQSocket) == 2 * sizeof(void*) && offsetof(ZMQSocket, context) == 0 &&
                  offsetof(ZMQSocket, socket) == sizeof(void*));
    require(context != nullptr, "Failed to create ZMQ context.");
    socket = zeroMq().zmq_socket(context, static_cast<int>(type));
    if (socket == nullptr) {
        destroyContext(context);
        throw std::runtime_error("Failed to create ZMQ socket.");
    }
}

ZMQSocket::~ZMQSocket() {
    zeroMq().zmq_close(socket);  // first: the end of the context would wait for it for ever
    destroyContext(context);
}

void ZMQSocket::bind(const std::string& endpoint) {
    require(zeroMq().zmq_bind(socket, endpoint.c_str()) == 0, "Failed to bind socket.");
}

void ZMQSocket::connect(const std::string& endpoint) {
    require(zeroMq().zmq_connect(socket, endpoint.c_str()) == 0, "Failed to connect socket.");
}

void ZMQSocket::send(const std::string& message, bool more) {
    Message part(message);
    require(zeroMq().zmq_sendmsg(socket, part.get(), more ? ZMQ_SNDMORE : 0) >= 0, "Failed to send message.");
}

std::string ZMQSocket::recv() {
    Message part;
    require(zeroMq().zmq_recvmsg(socket, part.get(), 0) >= 0, "Failed to receive message.");
    return part.text();
}

void ZMQSocket::subscribe(const std::string& topic) {
    require(zeroMq().zmq_setsockopt(socket, ZMQ_SUBSCRIBE, topic.data(), topic.size()) == 0,
            "Failed to set subscription filter.");
}
