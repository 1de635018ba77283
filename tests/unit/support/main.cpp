// Runs the tests inside the sandbox; only listing them needs none.
#include "support/sandbox.h"

#include <gtest/gtest.h>

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests))
        enter_sandbox();
    return RUN_ALL_TESTS();
}
