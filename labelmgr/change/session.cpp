#include "labelmgr/change/session.h"

#include "labelmgr/change/recovery.h"
#include "log/logger.h"

Store openToChange(const Context& context, std::chrono::seconds patience) {
    Store store = Store::openToWrite(context.stateDirectory, patience);
    finishWhatWasLeft(store, context);
    return store;
}

std::optional<Store> openToChangeIfThere(const Context& context) {
    return Store::isThere(context.stateDirectory) ? std::optional(openToChange(context)) : std::nullopt;
}

std::optional<Store> openToRead(const Context& context) {
    std::optional<Store> store = Store::openToRead(context.stateDirectory);
    if (!store || !hasLeftWork(*store)) {
        return store;
    }
    store.reset();
    try {
        Store left = Store::openToWrite(context.stateDirectory, std::chrono::seconds(0));
        finishWhatWasLeft(left, context);
    } catch (const StoreBusy&) {  // so it is not left: its process is at work on it
    } catch (const OperationError& failure) {
        ZORV_LOG(warn, "a change that was left unfinished is read as taken back: %s", failure.what());
    }
    store = Store::openToRead(context.stateDirectory);
    if (store && !store->pending().isEmpty()) {
        store->pending().showFormerValues();
    }
    return store;
}
