// One test for each way in which a test can end.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

int tests_of_this_process = 0;
void *volatile block = nullptr;

TEST(Example, PassesAsTheFirstOfItsProcess) {
    EXPECT_EQ(++tests_of_this_process, 1);
}

TEST(Example, PassesAsTheFirstOfItsProcessToo) {
    EXPECT_EQ(++tests_of_this_process, 1);
}

TEST(Example, PassesAndLeavesAChildBehind) {
    const pid_t child = fork();
    if (child == 0) {
        execlp("sleep", "sleep", "86397", nullptr);
        _exit(EXIT_FAILURE);
    }
    EXPECT_GT(child, 0);
}

TEST(Example, FailsAnExpectation) {
    EXPECT_EQ(1, 2) << "what the test has to say";
}

TEST(Example, EndsWithStatusZeroBeforeItsEnd) {
    exit(EXIT_SUCCESS);
}

TEST(Example, IsEndedByASignal) {
    abort();
}

TEST(Example, DoesNotEnd) {
    puts("about to wait");
    fflush(stdout);
    for (;;)
        pause();
}

TEST(Example, SkipsItself) {
    GTEST_SKIP();
}

TEST(Example, LosesMemory) {
    block = malloc(7);
    memset(block, 1, 7);
    block = nullptr;
}

TEST(Example, ReadsBehindABlock) {
    block = malloc(7);
    EXPECT_GE(static_cast<volatile unsigned char *>(block)[7], 0);
    free(block);
}

} // namespace
