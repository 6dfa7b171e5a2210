#pragma once

#include <string>

#include "base/api.h"

// One ZeroMQ socket in a context of its own, for text messages. It owns both, is neither
// copied nor moved, and belongs to one thread at a time. Nothing is logged. Every failure
// is a std::runtime_error with a fixed message, without the reason; the object stays
// usable. A signal that interrupts a blocking call is a failure too, so that the caller
// decides whether to go on.
//
// The first socket of a process loads libzmq, which takes descriptors and the system's
// files. A program that changes its root or uses up its descriptors makes one before, or
// links libzmq itself: what the program has already is used.
class ZORV_API ZMQSocket {
 public:
    // ZeroMQ's own numbers.
    enum class socketType : int {
        kPair = 0,
        kPub = 1,
        kSub = 2,
        kReq = 3,
        kRep = 4,
        kDealer = 5,
        kRouter = 6,
        kPull = 7,
        kPush = 8,
        kXPub = 9,
        kXSub = 10,
        kStream = 11,
    };

    // "Failed to create ZMQ context." or "Failed to create ZMQ socket." The first one
    // also when libzmq cannot be loaded or lacks a function; the loader's reason is then
    // nested in the exception.
    explicit ZMQSocket(socketType type);
    // Waits until messages that are on their way to connected peers have been handed
    // over.
    ~ZMQSocket();
    ZMQSocket(const ZMQSocket&) = delete;
    ZMQSocket& operator=(const ZMQSocket&) = delete;

    // Endpoints are ZeroMQ's, such as "tcp://127.0.0.1:5555" or "ipc:///run/zorv/labels".
    // "Failed to bind socket." and "Failed to connect socket."
    void bind(const std::string& endpoint);
    void connect(const std::string& endpoint);

    // Sends the bytes as one message, or as one part of a message when more parts follow.
    // Blocks while the peer's queue is full, where the socket's kind does. "Failed to
    // send message."
    void send(const std::string& message, bool more);

    // Waits for the next message and answers its bytes, NULs included; of a message in
    // parts, one part a call. "Failed to receive message."
    std::string recv();

    // Lets messages through that begin with the topic: all of them for the empty topic.
    // For subscribing kinds. "Failed to set subscription filter."
    void subscribe(const std::string& topic);

 private:
    void* context;
    void* socket = nullptr;
};
