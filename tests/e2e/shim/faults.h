/*
 * Preloaded into the unmodified daemon: calls of the C library that fail when a test says so. What is to fail, how
 * often each call was made and how often it failed stands in a file that the test has mapped too (tests/e2e/faults.py),
 * so that a counted call costs no other call. Without the file everything goes on to the C library.
 *
 * Nothing here allocates. The programs that the daemon starts are left alone.
 */
#pragma once

#include <cstdint>

#define INTERPOSED extern "C" [[gnu::visibility("default")]]
#define CALLER __builtin_return_address(0)

// The order of faults.py.
enum which {
    ALLOCATION,
    SOCKET,
    BIND,
    CONNECT,
    POLL,
    RECV,
    READ,
    OPEN,
    FOPEN,
    POPEN,
    FCNTL,
    IOCTL,
    SETSOCKOPT,
    SENDTO,
    EPOLL_CTL,
    NAME_TO_INDEX,
    INDEX_TO_NAME,
    CLOCK,
    EPOLL_CREATE,
    EVENTFD,
    TIMER_CREATE,
    SENDMSG,
    FSTAT,
    FLOCK,
    CALLS
};

struct rule {
    uint64_t first; // the first call that fails; 0 for none
    uint64_t last;  // the last one; 0 for no end
    int64_t error;  // errno; below 0, the length that a reading call is cut to; seconds for the clock
    uint64_t calls; // since the test began to count
    uint64_t failed;
};

struct control {
    rule rules[CALLS];
    int64_t live;    // allocations less releases
    uint64_t spared; // allocations that were not allowed to fail
    char place[96];  // who asked for the last allocation that failed
};

extern control *shared; // null without the file

// Counts a call; whether it is to fail.
bool hit(which call);
