// SIGINT and SIGTERM, which end the daemon whatever it waits for; and waits inside the bus library, which must not be
// endless.
#pragma once

#include <csignal>
#include <sys/types.h>

// Lets them end the process: whoever started it may have left them blocked.
void event_admit_stop_signals();

// To be called once there is a loop. Remembers the stop signals from now on: the loop forgets, when it starts to run,
// that one ended it before. Four seconds after the first one the process ends, with status 0, where it is then.
void event_hold_stop_signals();

// Has the running loop obey them, one that came meanwhile included.
void event_release_stop_signals();

// Leaves them to the loop alone, and stops the clock.
void event_return_stop_signals();

// While it lives, what the bus library waits for has an end: when it is reached, the system call that blocks is
// interrupted, and the connection that is being watched is shut down. Alive one at a time.
class bus_wait {
public:
    // For the start: ends some tenths of a second after a stop signal came, which stays remembered. A broker that is
    // there is done by then, and the start goes on.
    static bus_wait until_stopped();
    // For the running loop.
    static bus_wait at_most_200_ms();

    // Names the connection's descriptor that the library waits on from now; -1 for none.
    void watch(int fd) const;

    bus_wait(const bus_wait &) = delete;
    bus_wait &operator=(const bus_wait &) = delete;
    ~bus_wait();

private:
    bus_wait(void (*on_tick)(int), int flags, suseconds_t first_ms);

    struct sigaction action_before_ {};
    sigset_t mask_before_{};
};
