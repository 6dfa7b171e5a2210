#pragma once

#include <deque>
#include <optional>
#include <string>

#include "base/handles.h"
#include "labelmgr/store/store.h"

// One listener to the store's change messages, from its subscription on, in the order of
// their commits. Used by one thread. It holds no connection while it waits, so that its
// process may fork.
//
// It sleeps until a writer lets go of the store, which is told by inotify: a writer
// closes the writers' lock when its change is committed. Once a second it looks by
// itself, for a store that is not there yet and for what no notification tells; an idle
// look is two file times.
//
// Failures throw OperationError: a store that cannot be read, one that was replaced or
// went back to an earlier state, and messages that the feed dropped before the listener
// came to them.
class Subscriber {
 public:
    explicit Subscriber(std::string stateDirectory) : directoryPath(std::move(stateDirectory)) {}

    // The topic is what a message begins with; empty for all messages.
    void subscribe(const std::string& topicOfMessages);
    // Waits for the next message.
    std::string receive();

 private:
    std::optional<Store> openStore();
    void watch();
    void fetch(bool isNotified);
    // Whether a notification ended it.
    bool waitForChange();

    std::string directoryPath;
    std::string topic;
    std::optional<StateDirectory::FileIdentity> followed;
    std::optional<int64_t> lastSequence;  // nothing before the subscription
    std::deque<std::string> fetched;
    UniqueFd notifications;  // none where the system has no more of them
    bool isWatching = false;
    std::optional<StateDirectory::Contents> readToTheEnd;
};
