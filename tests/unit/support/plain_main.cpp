// Runs tests that need no sandbox.
#include "support/each_alone.h"

#include <gtest/gtest.h>

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    return run_tests(argc, argv, nullptr);
}
