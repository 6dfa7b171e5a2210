#include "labelmgr/change_feed.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <sys/inotify.h>

#include "labelmgr/operation_error.h"

namespace {

constexpr size_t kMessagesAtOnce = 1000;
constexpr int kFallbackMilliseconds = 1000;

}  // namespace

void Subscriber::subscribe(const std::string& topicOfMessages) {
    topic = topicOfMessages;
    fetched.clear();
    store = Store::openExisting();
    lastSequence = store ? store->lastMessage() : 0;
    notifications = UniqueFd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    isWatching = false;
    if (!notifications) {
        throw systemError("inotify");
    }
}

std::string Subscriber::receive() {
    if (!lastSequence) {
        throw OperationError("no topic is subscribed to");
    }
    while (fetched.empty()) {
        fetch();
        if (fetched.empty()) {
            waitForChange();
        }
    }
    std::string message = std::move(fetched.front());
    fetched.pop_front();
    return message;
}

void Subscriber::fetch() {
    if (!isWatching) {  // before the look, so that nothing falls between the two
        const std::string directory = StateDirectory::configured();
        isWatching = inotify_add_watch(notifications.get(), directory.c_str(), IN_CLOSE_WRITE) >= 0;
    }
    if (!store && !(store = Store::openExisting())) {
        return;
    }
    if (store->lastMessage() < *lastSequence) {
        throw OperationError("the store was replaced while its changes were followed");
    }
    const std::vector<FeedMessage> messages = store->messagesAfter(*lastSequence, kMessagesAtOnce);
    if (!messages.empty() && messages.front().sequence != *lastSequence + 1) {
        throw OperationError("change messages were dropped before they were read");
    }
    for (const FeedMessage& message : messages) {
        lastSequence = message.sequence;
        if (message.text.rfind(topic, 0) == 0) {
            fetched.push_back(message.text);
        }
    }
}

// A writer closes the store's lock file when its change is committed.
void Subscriber::waitForChange() {
    pollfd event{notifications.get(), POLLIN, 0};
    if (poll(&event, 1, kFallbackMilliseconds) < 0 && errno != EINTR) {
        throw systemError("poll");
    }
    alignas(inotify_event) std::array<char, 4096> discarded{};
    while (read(notifications.get(), discarded.data(), discarded.size()) > 0) {
    }
}
