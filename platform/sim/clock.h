/*
 * Simulated time. Where the node has the file NODE_DIR/clock at a process's first call that tells the time or waits for
 * it, and its simulator listens at the abstract address "kolt-node.clock" (SOCK_SEQPACKET), time is what the simulator
 * says. Everywhere else it is libc's.
 *
 * The process says what it waits for, and the simulator grants it time; each message is one of the structures below.
 * The first grant comes unasked and sets the start. Between grants time stands still, so the process is infinitely
 * fast, and the same grants give the same run. A wait that is the same as the last one said is not repeated: a process
 * that handles an event and goes back to its old wait is silent. The number of a grant comes back in the next wait,
 * which says that since that grant there was nothing left to do.
 *
 * When the connection closes, simulated time is over and goes on as real time from its last moment. A forked child
 * does the same at its own first call. A process is taken to have one thread.
 */
#ifndef SIM_CLOCK_H
#define SIM_CLOCK_H

#include <csignal>
#include <cstdint>
#include <ctime>
#include <sys/epoll.h>
#include <sys/time.h>
#include <unistd.h>

// Times are nanoseconds of the monotonic clock, in host order.
struct wait_message {
    uint64_t now;
    uint64_t deadline; // when the process wants to wake, or NEVER
    uint64_t echo;     // the number of the last grant
};

struct grant_message {
    uint64_t now;
    uint64_t number;
};

static_assert(sizeof(wait_message) == 24 && sizeof(grant_message) == 16);

constexpr uint64_t NEVER = UINT64_MAX;
constexpr uint64_t NS_PER_S = 1000000000;

/* The calls behind those that clock_calls.cpp puts in their place. */
struct libc_calls {
    int (*clock_gettime)(clockid_t, timespec *);
    int (*gettimeofday)(timeval *, void *);
    time_t (*time)(time_t *);
    int (*nanosleep)(const timespec *, timespec *);
    int (*clock_nanosleep)(clockid_t, int, const timespec *, timespec *);
    unsigned (*sleep)(unsigned);
    int (*usleep)(useconds_t);
    int (*epoll_wait)(int, epoll_event *, int, int);
    int (*epoll_pwait)(int, epoll_event *, int, int, const sigset_t *);
};

const libc_calls &libc();

/* Whether time is, or was, the simulator's: libc's is not the one to go by then. */
bool time_is_ours();

/* Whether the simulator grants time still. */
bool time_is_granted();

/* The present moment, where time is ours. */
uint64_t now_ns();

/* What is left until `deadline`; 0 when it is over. */
uint64_t remaining_ns(uint64_t deadline);

/*
 * Waits until the simulator grants time, the connection closes, or `fd` (unless it is -1) can be read. False, with
 * errno, when a signal came that `mask` (null: the process's own) lets in.
 */
bool await_grant(int fd, uint64_t deadline, const sigset_t *mask);

/* A time beyond all use becomes one that can still be added to. */
uint64_t to_ns(const timespec &time);
timespec to_timespec(uint64_t ns);

#endif
