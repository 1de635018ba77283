// Until the loop runs, a stop signal is only remembered; from then on it is passed on to the loop's own handler. With
// it a clock starts, because a callback may be waiting for something that never comes.
//
// A timer ticks during a wait for the bus. A tick interrupts a system call only once the wait is to end; it is
// repeated, because one that comes right before the call would be lost.
#include "core/hub/stop_signals.h"

#include "core/ubus.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr int STOP_SIGNALS[] = {SIGINT, SIGTERM};
constexpr int TIME_IS_UP = SIGVTALRM; // which nothing else of the daemon uses
constexpr time_t PATIENCE_S = 4;      // of a supervisor that kills after five
constexpr suseconds_t TICK_MS = 100;
constexpr suseconds_t ATTEMPT_MS = 200;
constexpr int GRACE_TICKS = 3; // that a broker gets after a stop signal

// What the signal handlers work on.
struct {
    volatile sig_atomic_t fd = -1; // of the connection that is waited on
    volatile sig_atomic_t ticks_since_stop = 0;
    volatile sig_atomic_t stop = 0; // the first stop signal that came
    bool has_clock = false;
    timer_t clock{};
    struct sigaction loop_actions[std::size(STOP_SIGNALS)]{}; // what the loop does about each of them
} waiting;

uloop_timeout release_timer;

void start_clock() {
    itimerspec time{};
    time.it_value.tv_sec = PATIENCE_S;
    if (waiting.has_clock)
        (void)timer_settime(waiting.clock, 0, &time, nullptr); // cannot fail with these arguments
}

void (*obeying(int signal))(int) {
    return waiting.loop_actions[std::find(STOP_SIGNALS, std::end(STOP_SIGNALS), signal) - STOP_SIGNALS].sa_handler;
}

void remember_stop(int signal) {
    if (waiting.stop != 0 || obeying(signal) == SIG_IGN)
        return;
    waiting.stop = signal;
    start_clock();
}

void pass_on_stop(int signal) {
    remember_stop(signal);
    const auto obey = obeying(signal);
    if (obey != SIG_IGN && obey != SIG_DFL)
        obey(signal);
}

// Nothing that the daemon holds outlives the process, but for the reader of a driver that tells nothing: whose child
// that is, only popen() knows.
[[noreturn]] void end_at_once(int /*signal*/) {
    _exit(EXIT_SUCCESS);
}

bool is_own(const struct sigaction &action) {
    return action.sa_handler == remember_stop || action.sa_handler == pass_on_stop;
}

// What the handler's signal interrupts goes on.
void handle(int signal, void (*handler)(int), struct sigaction *before) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    (void)sigaction(signal, &action, before); // cannot fail for these signals
}

// Puts `handler` in the place of what is done about the stop signals, and keeps that as the loop's.
void take_over(void (*handler)(int)) {
    struct sigaction *kept = waiting.loop_actions;
    for (const int signal : STOP_SIGNALS) {
        struct sigaction before {};
        handle(signal, handler, &before);
        if (!is_own(before))
            *kept = before;
        kept++;
    }
}

void let_stop_signals_through(uloop_timeout * /*timer*/) {
    take_over(pass_on_stop); // some releases of the loop take the signals over when they begin to run
    if (waiting.stop != 0)
        (void)raise(waiting.stop); // cannot fail for a signal that has come once
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
    if (waiting.stop == 0)
        return;
    waiting.ticks_since_stop = waiting.ticks_since_stop + 1;
    if (waiting.ticks_since_stop < GRACE_TICKS)
        return;
    handle_ticks(end_wait, 0, nullptr); // from the next tick on
    end_wait(signal);
}

} // namespace

void event_admit_stop_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, TIME_IS_UP})
        sigaddset(&signals, signal);
    (void)sigprocmask(SIG_UNBLOCK, &signals, nullptr); // cannot fail with these arguments
}

void event_hold_stop_signals() {
    event_return_stop_signals();
    sigevent expiry{};
    expiry.sigev_notify = SIGEV_SIGNAL;
    expiry.sigev_signo = TIME_IS_UP;
    waiting.has_clock = timer_create(CLOCK_MONOTONIC, &expiry, &waiting.clock) == 0; // without it, a wait has no end
    handle(TIME_IS_UP, end_at_once, nullptr);
    take_over(remember_stop);
    event_admit_stop_signals();
}

void event_release_stop_signals() {
    release_timer.cb = let_stop_signals_through;
    (void)uloop_timeout_set(&release_timer, 0); // fails only for what is no timer
}

void event_return_stop_signals() {
    const struct sigaction *kept = waiting.loop_actions;
    for (const int signal : STOP_SIGNALS) {
        struct sigaction current {};
        if (sigaction(signal, nullptr, &current) == 0 && is_own(current))
            (void)sigaction(signal, kept, nullptr); // cannot fail for what was in force
        kept++;
    }
    if (waiting.has_clock)
        (void)timer_delete(waiting.clock); // cannot fail for one that was made
    waiting.has_clock = false;
    waiting.stop = 0;
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
