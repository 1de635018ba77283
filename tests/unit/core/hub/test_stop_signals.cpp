// The stop signals before the loop runs, and waits that end.
#include "core/hub/stop_signals.h"
#include "hub_test.h"

#include <csignal>
#include <cstring>
#include <fstream>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int STOP_SIGNALS[] = {SIGINT, SIGTERM};

// What the process does on the signals that a wait handles.
struct signal_state {
    std::map<int, void (*)(int)> handlers;
    std::map<int, bool> blocked;
    bool ticking;
    bool operator==(const signal_state &) const = default;
};

signal_state current_state() {
    signal_state state{};
    sigset_t mask;
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    for (const int number : {SIGINT, SIGTERM, SIGALRM}) {
        struct sigaction action {};
        sigaction(number, nullptr, &action);
        state.handlers[number] = action.sa_handler;
        state.blocked[number] = sigismember(&mask, number) == 1;
    }
    itimerval timer{};
    getitimer(ITIMER_REAL, &timer);
    state.ticking = timer.it_value.tv_sec != 0 || timer.it_value.tv_usec != 0;
    return state;
}

class StopSignals : public hub_test {
protected:
    StopSignals() {
        signal(SIGALRM, ignore_signal);
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends_) != 0)
            ADD_FAILURE() << "no socket pair";
    }
    ~StopSignals() override {
        close(ends_[0]);
        close(ends_[1]);
    }
    // What the kernel tells of the process's clocks.
    static std::string clocks() {
        std::ifstream file("/proc/self/timers");
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // Reads what never comes; how long that took to end.
    [[nodiscard]] int64_t read_in_vain() const {
        const stopwatch watch;
        char byte;
        while (read(ends_[0], &byte, 1) != 0) {
        }
        return watch.ms();
    }
    int ends_[2] = {-1, -1};
};

// What is waited for here ends never, and each signal would start the clock anew if it could: that would take for ever.
void wait_in_vain() {
    for (;;) {
        usleep(500000);
        raise(SIGTERM);
    }
}

using StopSignalsDeathTest = StopSignals;

} // namespace

TEST_F(StopSignals, SignalsAreHeldUntilTheLoopRunsWhichTheyEndAtOnce) {
    for (const int number : STOP_SIGNALS) {
        event_hold_stop_signals();
        raise(number);
        const stopwatch watch;
        EXPECT_EQ(event_loop(&node.ev), number);
        EXPECT_LT(watch.ms(), 2000);
    }
}

TEST_F(StopSignals, SignalDuringAWaitThatSucceedsEndsTheLoopAtOnce) {
    for (const int number : STOP_SIGNALS) {
        event_hold_stop_signals();
        {
            const bus_wait wait = bus_wait::until_stopped();
            raise(number);
        }
        EXPECT_EQ(event_loop(&node.ev), number);
    }
}

TEST_F(StopSignals, SignalOfAnEarlierWaitIsForgottenByTheNext) {
    event_hold_stop_signals();
    {
        const bus_wait wait = bus_wait::until_stopped();
        raise(SIGTERM);
    }
    EXPECT_EQ(event_loop(&node.ev), SIGTERM);
    event_hold_stop_signals();
    { const bus_wait wait = bus_wait::until_stopped(); }
    uloop_timeout end{};
    end.cb = [](uloop_timeout * /*timer*/) { uloop_end(); };
    uloop_timeout_set(&end, 50);
    EXPECT_EQ(event_loop(&node.ev), 0);
}

TEST_F(StopSignals, SignalsAreTheLoopsAloneAgainOnceTheyAreReturned) {
    const signal_state before = current_state();
    event_hold_stop_signals();
    EXPECT_NE(current_state(), before);
    raise(SIGTERM);
    EXPECT_EQ(event_loop(&node.ev), SIGTERM);
    EXPECT_NE(current_state(), before);
    event_return_stop_signals();
    EXPECT_EQ(current_state(), before);
    EXPECT_EQ(clocks(), "");
}

TEST_F(StopSignals, SignalsThatWereBlockedBeforeTheStartAreNoticed) {
    sigset_t all;
    sigfillset(&all);
    sigset_t before;
    sigprocmask(SIG_BLOCK, &all, &before);
    event_hold_stop_signals();
    raise(SIGTERM);
    EXPECT_EQ(event_loop(&node.ev), SIGTERM);
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

// The call may be in the middle of a driver's table.
TEST_F(StopSignals, SignalsInterruptNoSystemCall) {
    event_hold_stop_signals();
    for (const bool in_loop : {false, true}) {
        if (in_loop) {
            raise(SIGTERM);
            EXPECT_EQ(event_loop(&node.ev), SIGTERM);
        }
        const pid_t other = fork();
        if (other == 0) {
            usleep(50000);
            kill(getppid(), SIGTERM);
            usleep(50000);
            _exit(write(ends_[1], "x", 1) == 1 ? 0 : 1);
        }
        char byte = 0;
        EXPECT_EQ(read(ends_[0], &byte, 1), 1) << strerror(errno);
        EXPECT_EQ(waitpid(other, nullptr, 0), other);
    }
    event_return_stop_signals();
}

TEST_F(StopSignalsDeathTest, SignalBeforeTheLoopRunsEndsTheProcessInFourSeconds) {
    const stopwatch watch;
    EXPECT_EXIT((event_hold_stop_signals(), wait_in_vain()), testing::ExitedWithCode(0), "^$");
    EXPECT_GE(watch.ms(), 4000);
    EXPECT_LT(watch.ms(), 8000);
}

TEST_F(StopSignalsDeathTest, SignalDuringACallbackEndsTheProcessInFourSeconds) {
    const auto run = [this] {
        event_hold_stop_signals();
        uloop_timeout callback{};
        callback.cb = [](uloop_timeout * /*timer*/) { wait_in_vain(); };
        uloop_timeout_set(&callback, 50);
        (void)event_loop(&node.ev);
    };
    const stopwatch watch;
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "^$");
    EXPECT_GE(watch.ms(), 4000);
    EXPECT_LT(watch.ms(), 8000);
}

TEST_F(StopSignals, WaitForTheStartLeavesHandlersMaskAndTimerAsTheyWere) {
    event_hold_stop_signals();
    const signal_state before = current_state();
    {
        const bus_wait wait = bus_wait::until_stopped();
        EXPECT_EQ(current_state().handlers[SIGTERM], before.handlers.at(SIGTERM)) << "what comes now is for the loop";
        EXPECT_TRUE(current_state().ticking);
    }
    EXPECT_EQ(current_state(), before);
    event_return_stop_signals();
}

TEST_F(StopSignals, WaitWithATimeLeavesHandlersMaskAndTimerAsTheyWere) {
    const signal_state before = current_state();
    {
        const bus_wait wait = bus_wait::at_most_200_ms();
        EXPECT_TRUE(current_state().ticking);
        EXPECT_EQ(current_state().handlers[SIGTERM], before.handlers.at(SIGTERM)) << "the loop's own";
    }
    EXPECT_EQ(current_state(), before);
}

TEST_F(StopSignals, WaitWithATimeEndsAReadOfTheWatchedConnection) {
    const bus_wait wait = bus_wait::at_most_200_ms();
    wait.watch(ends_[0]);
    const int64_t ms = read_in_vain();
    EXPECT_GE(ms, 190);
    EXPECT_LT(ms, 2000);
}

TEST_F(StopSignals, SignalEndsAReadOfTheWatchedConnectionDuringAWaitForTheStart) {
    for (const int number : STOP_SIGNALS) {
        event_hold_stop_signals();
        {
            const bus_wait wait = bus_wait::until_stopped();
            wait.watch(ends_[0]);
            raise(number);
            EXPECT_LT(read_in_vain(), 2000);
        }
        EXPECT_EQ(event_loop(&node.ev), number);
    }
}

TEST_F(StopSignals, SignalBeforeTheConnectionIsWatchedEndsItsReadAllTheSame) {
    event_hold_stop_signals();
    const bus_wait wait = bus_wait::until_stopped();
    raise(SIGTERM);
    wait.watch(ends_[0]);
    EXPECT_LT(read_in_vain(), 2000) << "the timer repeats what the signal did";
    std::ignore = wait;
}
