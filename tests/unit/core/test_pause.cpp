// The pause of a whole second.
#include "core/pause.h"

#include "stopwatch.h"

#include <gtest/gtest.h>

namespace {

volatile sig_atomic_t signals;
void count_signal(int /*number*/) {
    signals = signals + 1;
}

} // namespace

TEST(Pause, PauseLastsOneFullSecond) {
    const stopwatch watch;
    kolt_pause_one_second();
    EXPECT_GE(watch.ms(), 1000);
    EXPECT_LT(watch.ms(), 5000);
}

TEST(Pause, PauseGoesOnForTheRemainderAfterASignal) {
    signals = 0;
    const repeated_signal alarm(70, count_signal);
    const stopwatch watch;
    kolt_pause_one_second();
    EXPECT_GE(watch.ms(), 1000);
    EXPECT_LT(watch.ms(), 5000); // the remainder, not a second afresh after each signal
    EXPECT_GE(signals, 2);
}
