#include <deque>
#include <mutex>

#include "cli/label_manager.h"
#include "labelmgr/feed/subscriber.h"
#include "labelmgr/model/operation_error.h"
#include "labelmgr/port/port_support.h"
#include "labelmgr/port/process_context.h"

// The port's operations for listeners.

namespace {

Subscriber& subscriberOf(void* handle) {
    if (handle == nullptr) {
        throw OperationError("no subscriber");
    }
    return *static_cast<Subscriber*>(handle);
}

}  // namespace

// The handles live as long as the process, which may end while one of its threads waits
// on one.
void* createSubscriber() {
    Subscriber* subscriber = nullptr;
    statusOf(__func__, [&] {
        static std::mutex mutex;
        static auto* const all = new std::deque<Subscriber>;
        const std::lock_guard<std::mutex> lock(mutex);
        subscriber = &all->emplace_back(processContext().stateDirectory);
        return 0;
    });
    return subscriber;
}

int subscribeLabelChangeMsg(void* subscriber, const std::string& topic) {
    return statusOf(__func__, [&] {
        subscriberOf(subscriber).subscribe(topic);
        return 0;
    });
}

int recvLabelChangeMsg(void* subscriber, char** message) {
    return statusOf(__func__, [&] {
        *message = newText(subscriberOf(subscriber).receive());
        return 0;
    });
}
