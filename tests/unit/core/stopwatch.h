// Time that passed, and a signal that keeps coming while it passes.
#pragma once

#include <csignal>
#include <cstdint>
#include <ctime>
#include <sys/time.h>

inline int64_t monotonic_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// A handler for a signal that is only to interrupt what waits.
inline void ignore_signal(int /*number*/) {}

class stopwatch {
public:
    [[nodiscard]] int64_t ms() const {
        return monotonic_ms() - start_;
    }

private:
    int64_t start_ = monotonic_ms();
};

// While it lives, SIGALRM arrives every `period_ms` and calls `handler`, which system calls are not restarted after.
class repeated_signal {
public:
    repeated_signal(int period_ms, void (*handler)(int)) {
        struct sigaction action {};
        action.sa_handler = handler;
        sigaction(SIGALRM, &action, &before_);
        const timeval period{.tv_sec = 0, .tv_usec = period_ms * 1000};
        const itimerval timer{.it_interval = period, .it_value = period};
        setitimer(ITIMER_REAL, &timer, nullptr);
    }
    ~repeated_signal() {
        const itimerval off{};
        setitimer(ITIMER_REAL, &off, nullptr);
        sigaction(SIGALRM, &before_, nullptr);
    }
    repeated_signal(const repeated_signal &) = delete;
    repeated_signal &operator=(const repeated_signal &) = delete;

private:
    struct sigaction before_ {};
};
