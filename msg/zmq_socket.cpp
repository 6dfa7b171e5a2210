#include "msg/zmq_socket.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <zmq.h>

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

class Message {
 public:
    Message() { zmq_msg_init(&message); }
    ~Message() { zmq_msg_close(&message); }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    // False when there is no memory for it.
    bool assign(const std::string& text) {
        if (zmq_msg_init_size(&message, text.size()) != 0) {
            zmq_msg_init(&message);
            return false;
        }
        std::memcpy(zmq_msg_data(&message), text.data(), text.size());
        return true;
    }

    std::string text() { return {static_cast<const char*>(zmq_msg_data(&message)), zmq_msg_size(&message)}; }

    zmq_msg_t* get() { return &message; }

 private:
    zmq_msg_t message;
};

void require(bool succeeded, const char* message) {
    if (!succeeded) {
        throw std::runtime_error(message);
    }
}

void destroyContext(void* context) {
    while (zmq_ctx_destroy(context) != 0 && errno == EINTR) {
    }
}

void closeSocket(void* socket) {
    zmq_close(socket);
}

}  // namespace

ZMQSocket::ZMQSocket(socketType type) : context(zmq_ctx_new(), destroyContext), socket(nullptr, closeSocket) {
    require(context != nullptr, "Failed to create ZMQ context.");
    socket.reset(zmq_socket(context.get(), static_cast<int>(type)));
    require(socket != nullptr, "Failed to create ZMQ socket.");
}

ZMQSocket::~ZMQSocket() = default;

void ZMQSocket::bind(const std::string& endpoint) {
    require(zmq_bind(socket.get(), endpoint.c_str()) == 0, "Failed to bind socket.");
}

void ZMQSocket::connect(const std::string& endpoint) {
    require(zmq_connect(socket.get(), endpoint.c_str()) == 0, "Failed to connect socket.");
}

void ZMQSocket::send(const std::string& message, bool more) {
    Message part;
    require(part.assign(message) && zmq_sendmsg(socket.get(), part.get(), more ? ZMQ_SNDMORE : 0) >= 0,
            "Failed to send message.");
}

std::string ZMQSocket::recv() {
    Message part;
    require(zmq_recvmsg(socket.get(), part.get(), 0) >= 0, "Failed to receive message.");
    return part.text();
}

void ZMQSocket::subscribe(const std::string& topic) {
    require(zmq_setsockopt(socket.get(), ZMQ_SUBSCRIBE, topic.data(), topic.size()) == 0,
            "Failed to set subscription filter.");
}
