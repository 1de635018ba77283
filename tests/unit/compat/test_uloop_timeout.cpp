// The event loop's timers.
#include "support.h"

#include <climits>
#include <ctime>

namespace {

struct Timer {
    uloop_timeout timer = {};
    int calls = 0;
    bool pending_in_callback = false;
    std::function<void(Timer &)> then = [](Timer &) {};

    Timer() {
        timer.cb = [](uloop_timeout *self) {
            auto &owner = *reinterpret_cast<Timer *>(self);
            owner.calls++;
            owner.pending_in_callback = self->pending;
            owner.then(owner);
        };
    }
    ~Timer() {
        uloop_timeout_cancel(&timer);
    }
    Timer(const Timer &) = delete;
    Timer &operator=(const Timer &) = delete;
};

int64_t now_ms() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

using UloopTimeout = LoopTest;

void end_loop(Timer &) {
    uloop_end();
}

TEST_F(UloopTimeout, FiresOnceNotBeforeItIsDue) {
    Timer timer;
    Timer end;
    end.then = end_loop;
    const int64_t start = now_ms();
    EXPECT_EQ(uloop_timeout_set(&timer.timer, 20), 0);
    EXPECT_TRUE(timer.timer.pending);
    EXPECT_EQ(uloop_timeout_set(&end.timer, 60), 0);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_GE(now_ms() - start, 59);
    EXPECT_EQ(timer.calls, 1);
}

TEST_F(UloopTimeout, IsClearedBeforeItsCallback) {
    Timer timer;
    timer.then = end_loop;
    uloop_timeout_set(&timer.timer, 0);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_FALSE(timer.pending_in_callback);
    EXPECT_FALSE(timer.timer.pending);
}

TEST_F(UloopTimeout, CallbackMaySetItAgain) {
    Timer timer;
    timer.then = [](Timer &self) {
        if (self.calls == 3)
            uloop_end();
        else
            EXPECT_EQ(uloop_timeout_set(&self.timer, 1), 0);
    };
    uloop_timeout_set(&timer.timer, 1);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(timer.calls, 3);
}

TEST_F(UloopTimeout, CallbackThatSetsItAgainAtOnceLetsDescriptorsHaveTheirTurn) {
    Timer timer;
    timer.then = [](Timer &self) { uloop_timeout_set(&self.timer, 0); };
    uloop_timeout_set(&timer.timer, 0);
    EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_GE(timer.calls, 1);
}

TEST_F(UloopTimeout, SetReArmsAPendingOne) {
    Timer timer;
    Timer end;
    end.then = end_loop;
    uloop_timeout_set(&timer.timer, 0);
    uloop_timeout_set(&timer.timer, PATIENCE_MS);
    uloop_timeout_set(&end.timer, 10);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(timer.calls, 0);
    uloop_timeout_set(&timer.timer, 0);
    timer.then = end_loop;
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(timer.calls, 1);
}

TEST_F(UloopTimeout, RunsOnTheMonotonicClock) {
    Timer timer;
    uloop_timeout_set(&timer.timer, 5000);
    EXPECT_NEAR(static_cast<double>(timer.timer.time.tv_sec * 1000 + timer.timer.time.tv_usec / 1000),
                static_cast<double>(now_ms() + 5000), 2000);
    EXPECT_EQ(uloop_timeout_cancel(&timer.timer), 0);
}

TEST_F(UloopTimeout, CancelledOneDoesNotFire) {
    Timer timer;
    uloop_timeout_set(&timer.timer, 0);
    EXPECT_EQ(uloop_timeout_cancel(&timer.timer), 0);
    EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_EQ(timer.calls, 0);
}

TEST_F(UloopTimeout, CancelOfAnIdleOneFails) {
    Timer timer;
    EXPECT_EQ(uloop_timeout_cancel(&timer.timer), -1);
}

TEST_F(UloopTimeout, AddOfAPendingOneFails) {
    Timer timer;
    uloop_timeout_set(&timer.timer, 1000);
    EXPECT_EQ(uloop_timeout_add(&timer.timer), -1);
    uloop_timeout_cancel(&timer.timer);
}

TEST_F(UloopTimeout, FiresInTheOrderOfDueTimes) {
    std::vector<int> order;
    Timer timers[3];
    for (int i = 0; i < 3; i++)
        timers[i].then = [&order, i](Timer &) { order.push_back(i); };
    timers[0].timer.time = {3, 0};
    timers[1].timer.time = {1, 0};
    timers[2].timer.time = {3, 0};
    for (Timer &timer : timers)
        ASSERT_EQ(uloop_timeout_add(&timer.timer), 0);
    EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_EQ(order, (std::vector{1, 0, 2}));
}

TEST_F(UloopTimeout, CallbackMayCancelAnotherThatIsDueToo) {
    Timer one;
    Timer two;
    one.then = [&](Timer &) { EXPECT_EQ(uloop_timeout_cancel(&two.timer), 0); };
    uloop_timeout_set(&one.timer, 0);
    uloop_timeout_set(&two.timer, 0);
    EXPECT_EQ(uloop_run_timeout(0), 0);
    EXPECT_EQ(one.calls, 1);
    EXPECT_EQ(two.calls, 0);
}

TEST_F(UloopTimeout, EndInACallbackLeavesTheOthersArmed) {
    Timer one;
    Timer two;
    one.then = end_loop;
    uloop_timeout_set(&one.timer, 0);
    uloop_timeout_set(&two.timer, 0);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(two.calls, 0);
    EXPECT_TRUE(two.timer.pending);
}

TEST_F(UloopTimeout, NegativeAndLongestIntervalsAreTaken) {
    Timer soon;
    Timer late;
    soon.then = end_loop;
    uloop_timeout_set(&soon.timer, INT_MIN);
    uloop_timeout_set(&late.timer, INT_MAX);
    EXPECT_EQ(uloop_run(), 0);
    EXPECT_EQ(soon.calls, 1);
    EXPECT_EQ(late.calls, 0);
}

TEST_F(UloopTimeout, DoneDisarmsAll) {
    Timer timer;
    uloop_timeout_set(&timer.timer, 0);
    uloop_done();
    EXPECT_FALSE(timer.timer.pending);
    EXPECT_FALSE(guard.pending);
}

} // namespace
