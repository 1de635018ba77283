// Pauses that block the daemon on purpose.
#pragma once

#include <cerrno>
#include <ctime>

// Blocks for one whole second; a signal does not shorten it.
inline void kolt_pause_one_second() {
    timespec left{.tv_sec = 1, .tv_nsec = 0};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}
