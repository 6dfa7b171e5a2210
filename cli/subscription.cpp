#include "cli/subscription.h"

#include "base/handles.h"
#include "cli/label_manager.h"
#include "cli/output.h"

int printLabelChanges(const char* topic) {
    void* subscriber = createSubscriber();
    if (subscribeLabelChangeMsg(subscriber, topic != nullptr ? topic : "") != 0) {
        printLine("subscribe file label change message error.");
        return 1;
    }
    while (!outputFailed()) {
        char* received = nullptr;
        if (recvLabelChangeMsg(subscriber, &received) != 0) {
            break;
        }
        const MallocOwner<char> message(received);
        printLine("Recviced: %s", message ? message.get() : "");
    }
    printLine("recvice file label change message error.");
    return 1;
}
