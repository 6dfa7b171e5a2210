#pragma once

#include <deque>
#include <optional>
#include <string>

#include "base/handles.h"
#include "labelmgr/store.h"

// One listener to the store's change messages, from its subscription on, in the order of their commits. Used
// by one thread. It holds no connection while it waits, so that its process may fork. It sleeps until a
// writer lets go of the store, with a look of its own once a second for a store that is not there yet and for
// what no notification tells.
// Failures throw OperationError: a store that cannot be read, one that was replaced, and messages that the
// feed dropped before the listener came to them.
class Subscriber {
 public:
    // The topic is what a message begins with; empty for all messages.
    void subscribe(const std::string& topicOfMessages);
    // Waits for the next message.
    std::string receive();

 private:
    std::optional<Store> openStore();
    void fetch(bool isNotified);
    // Whether a notification ended it.
    bool waitForChange();

    std::string topic;
    std::optional<StateDirectory::FileIdentity> followed;
    std::optional<int64_t> lastSequence;  // nothing before the subscription
    std::deque<std::string> fetched;
    UniqueFd notifications;
    bool isWatching = false;
    std::optional<StateDirectory::Contents> readToTheEnd;
};
