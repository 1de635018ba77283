// What the parts of the event loop share.
#pragma once

#include "c_headers.h"

// Calls back the timers that are due, until one of them ends the loop.
void uloop_process_timeouts();

// Milliseconds until the next timer is due, rounded up; -1 when none is armed.
int uloop_next_timeout();

// Disarms all timers.
void uloop_clear_timeouts();

// Takes over SIGINT, SIGTERM and SIGCHLD, which from then on write to `wake_fd`, or gives them back.
void uloop_install_signals(int wake_fd);
void uloop_restore_signals();

// Number of the signal that asked the loop to end since the last call, else 0.
int uloop_take_signal();

// Reaps all children that have ended, when SIGCHLD has come since the last call.
void uloop_reap_children();
