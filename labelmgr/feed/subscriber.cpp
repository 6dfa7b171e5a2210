#include "labelmgr/feed/subscriber.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/inotify.h>

#include "labelmgr/model/operation_error.h"
#include "log/logger.h"

namespace {

constexpr size_t kMessagesAtOnce = 1000;
constexpr std::chrono::seconds kFallback{1};

using Clock = std::chrono::steady_clock;

// Reads all that have come; true when a writer is among those who closed a file. When the
// directory is gone it is not watched any more.
bool takeNotifications(int notifications, bool& isWatching) {
    bool hasWriter = false;
    alignas(inotify_event) std::array<char, 4096> buffer{};
    ssize_t size = 0;
    while ((size = read(notifications, buffer.data(), buffer.size())) > 0) {
        for (const char* next = buffer.data(); next < buffer.data() + size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(next);
            const bool isUnsure = (event->mask & (IN_Q_OVERFLOW | IN_IGNORED)) != 0;
            isWatching = isWatching && (event->mask & IN_IGNORED) == 0;
            hasWriter = hasWriter || isUnsure || (event->len > 0 && StateDirectory::isLock(event->name));
            next += sizeof(inotify_event) + event->len;
        }
    }
    return hasWriter;
}

}  // namespace

void Subscriber::subscribe(const std::string& topicOfMessages) {
    topic = topicOfMessages;
    fetched.clear();
    followed.reset();
    readToTheEnd.reset();
    notifications = UniqueFd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    isWatching = false;
    if (!notifications) {  // a user may have only so many
        ZORV_LOG(warn, "changes are looked for once a second: %s", std::strerror(errno));
    }
    std::optional<Store> store = openStore();
    lastSequence = store ? store->feed().last() : 0;
}

std::string Subscriber::receive() {
    if (!lastSequence) {
        throw OperationError("no topic is subscribed to");
    }
    for (bool isNotified = true; fetched.empty();) {
        fetch(isNotified);
        if (fetched.empty()) {
            isNotified = waitForChange();
        }
    }
    std::string message = std::move(fetched.front());
    fetched.pop_front();
    return message;
}

std::optional<Store> Subscriber::openStore() {
    const auto directory = StateDirectory::open(directoryPath, StateDirectory::IfMissing::kAnswerNothing);
    const auto present = directory ? directory->databaseIdentity() : std::nullopt;
    if (followed && present != followed) {
        throw OperationError("the store was replaced while its changes were followed");
    }
    followed = present;
    return Store::openToRead(directoryPath);
}

void Subscriber::watch() {
    if (notifications && !isWatching) {
        isWatching = inotify_add_watch(notifications.get(), directoryPath.c_str(), IN_CLOSE_WRITE) >= 0;
    }
}

void Subscriber::fetch(bool isNotified) {
    watch();  // before the look, so that nothing falls between the two
    const auto directory = StateDirectory::open(directoryPath, StateDirectory::IfMissing::kAnswerNothing);
    const auto contents = directory ? directory->settledContents() : std::nullopt;
    if (!isNotified && contents && contents == readToTheEnd) {
        return;  // spares an idle listener the opening of the store
    }
    std::optional<Store> store = openStore();
    const auto messages =
        store ? store->feed().after(*lastSequence, kMessagesAtOnce) : std::vector<FeedMessage>();
    if (!messages.empty() && messages.front().sequence != *lastSequence + 1) {
        throw OperationError("change messages were dropped before they were read");
    }
    if (store && messages.empty() && store->feed().last() < *lastSequence) {
        throw OperationError("the store went back to an earlier state: change messages may be missing");
    }
    for (const FeedMessage& message : messages) {
        lastSequence = message.sequence;
        if (!message.text.empty() && message.text.rfind(topic, 0) == 0) {
            fetched.push_back(message.text);
        }
    }
    readToTheEnd = messages.empty() ? contents : std::nullopt;
}

bool Subscriber::waitForChange() {
    const auto deadline = Clock::now() + kFallback;
    while (Clock::now() < deadline) {
        pollfd event{notifications.get(), POLLIN, 0};
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (poll(&event, notifications ? 1 : 0, static_cast<int>(left.count())) < 0 && errno != EINTR) {
            throw systemError("poll");
        }
        if (notifications && takeNotifications(notifications.get(), isWatching)) {
            return true;
        }
    }
    return false;
}
