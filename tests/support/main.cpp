#include <gtest/gtest.h>

#include "tests/support/temporary_tree.h"

// Tests that fork beside a thread go on in the child. The names are the sanitizer's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "die_after_fork=0";
}
// NOLINTEND(bugprone-reserved-identifier)

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests)) {
        enterPrivateMounts();
    }
    return RUN_ALL_TESTS();
}
