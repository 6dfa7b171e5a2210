#include <gtest/gtest.h>

#include "tests/support/temporary_tree.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests)) {
        enterPrivateMounts();
    }
    return RUN_ALL_TESTS();
}
