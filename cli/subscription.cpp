#include "cli/subscription.h"

#include <cstdlib>
#include <memory>

#include "cli/label_manager.h"
#include "cli/output.h"

int printLabelChanges(const char* topic) {
    void* subscriber = createSubscriber();
    if (subscribeLabelChangeMsg(subscriber, topic != nullptr ? topic : "") != 0) {
        printLine("subscribe file label change message error.");
        return 1;
    }
    while (!outputFailed()) {
        char* message = nullptr;
        if (recvLabelChangeMsg(subscriber, &message) != 0) {
            break;
        }
        printLine("Recviced: %s", message != nullptr ? message : "");
        std::free(message);
    }
    printLine("recvice file label change message error.");
    return 1;
}
