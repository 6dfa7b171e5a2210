#include <cstddef>
#include <cstdint>

#include <log4cpp/Category.hh>

#include "fuzz/fuzz.h"
#include "log/logger.h"
#include "tests/support/private_mounts.h"

// Every log line is formatted, and then goes nowhere.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    enterPrivateMounts();
    Logger::getInstance();
    log4cpp::Category::getRoot().removeAllAppenders();
    log4cpp::Category::getRoot().setPriority(log4cpp::Priority::DEBUG);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzOne({reinterpret_cast<const char*>(data), size});
    return 0;
}
