// A timer ticks during a wait. A tick interrupts a system call only once the wait is to end; it is repeated, because
// one that comes right before the call would be lost.
#include "core/hub/stop_signals.h"

#include "core/ubus.h"

#include <cerrno>
#include <sys/socket.h>
#include <sys/time.h>

namespace {

constexpr suseconds_t TICK_MS = 100;
constexpr suseconds_t ATTEMPT_MS = 200;
constexpr int GRACE_TICKS = 3; // that a broker gets after a stop signal

// What the signal handlers work on.
struct {
    volatile sig_atomic_t fd = -1; // of the connection that is waited on
    volatile sig_atomic_t ticks_since_stop = 0;
} waiting;

uloop_timeout release_timer;

sigset_t stop_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

void let_stop_signals_through(uloop_timeout * /*timer*/) {
    const sigset_t signals = stop_signals();
    (void)sigprocmask(SIG_UNBLOCK, &signals, nullptr); // cannot fail with these arguments
}

// The first tick comes after `first` milliseconds; 0 ends the ticking.
void set_ticking(suseconds_t first) {
    const itimerval ticks{.it_interval = {.tv_sec = 0, .tv_usec = first != 0 ? TICK_MS * 1000 : 0},
                          .it_value = {.tv_sec = 0, .tv_usec = first * 1000}};
    (void)setitimer(ITIMER_REAL, &ticks, nullptr); // cannot fail with these arguments
}

void end_wait(int /*signal*/) {
    const int error = errno;
    if (waiting.fd >= 0)
        (void)shutdown(waiting.fd, SHUT_RDWR); // the library finds the end of the connection
    errno = error;
}

// Without SA_RESTART among the flags, the handler's signal interrupts a system call that blocks.
void handle_ticks(void (*handler)(int), int flags, struct sigaction *before) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    (void)sigaction(SIGALRM, &action, before); // cannot fail for this signal
}

void look_for_stop(int signal) {
    sigset_t pending;
    if (sigpending(&pending) != 0 || (sigismember(&pending, SIGINT) != 1 && sigismember(&pending, SIGTERM) != 1))
        return;
    waiting.ticks_since_stop = waiting.ticks_since_stop + 1;
    if (waiting.ticks_since_stop < GRACE_TICKS)
        return;
    handle_ticks(end_wait, 0, nullptr); // from the next tick on
    end_wait(signal);
}

} // namespace

void event_hold_stop_signals() {
    const sigset_t signals = stop_signals();
    (void)sigprocmask(SIG_BLOCK, &signals, nullptr); // cannot fail with these arguments
}

void event_release_stop_signals() {
    release_timer.cb = let_stop_signals_through;
    (void)uloop_timeout_set(&release_timer, 0); // fails only for what is no timer
}

bus_wait bus_wait::until_stopped() {
    return {look_for_stop, SA_RESTART, TICK_MS};
}

bus_wait bus_wait::at_most_200_ms() {
    return {end_wait, 0, ATTEMPT_MS};
}

bus_wait::bus_wait(void (*on_tick)(int), int flags, suseconds_t first_ms) {
    waiting.ticks_since_stop = 0;
    handle_ticks(on_tick, flags, &action_before_);
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    (void)sigprocmask(SIG_UNBLOCK, &alarm, &mask_before_); // whoever started the daemon may have left it blocked
    set_ticking(first_ms);
}

void bus_wait::watch(int fd) const {
    waiting.fd = fd;
}

bus_wait::~bus_wait() {
    set_ticking(0);
    waiting.fd = -1;
    (void)sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
    (void)sigaction(SIGALRM, &action_before_, nullptr);
}
