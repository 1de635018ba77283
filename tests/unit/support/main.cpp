// Runs the tests inside the sandbox; only listing them needs none.
#include "support/each_alone.h"
#include "support/sandbox.h"

#include <gtest/gtest.h>

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    return run_tests(argc, argv, enter_sandbox);
}
