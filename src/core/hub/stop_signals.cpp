// A stop during the start counts as soon as the start is done.
#include "core/hub/stop_signals.h"

#include "core/ubus.h"

#include <csignal>

namespace {

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

} // namespace

void event_hold_stop_signals() {
    const sigset_t signals = stop_signals();
    (void)sigprocmask(SIG_BLOCK, &signals, nullptr); // cannot fail with these arguments
}

void event_release_stop_signals() {
    release_timer.cb = let_stop_signals_through;
    (void)uloop_timeout_set(&release_timer, 0); // fails only for what is no timer
}
