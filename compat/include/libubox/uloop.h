/*
 * Event loop of one thread: descriptors, one-shot timers, SIGINT and SIGTERM, children. Watchers and timers belong to
 * the caller and must outlive their registration. Nothing here may be called from another thread.
 */
#ifndef LIBUBOX_ULOOP_H
#define LIBUBOX_ULOOP_H

#include <libubox/list.h>

#include <stdbool.h>
#include <stdint.h>
#include <sys/time.h>

#define ULOOP_READ (1 << 0)
#define ULOOP_WRITE (1 << 1)
#define ULOOP_EDGE_TRIGGER (1 << 2)
#define ULOOP_BLOCKING (1 << 3)

struct uloop_fd;
struct uloop_timeout;

typedef void (*uloop_fd_handler)(struct uloop_fd *u, unsigned int events);
typedef void (*uloop_timeout_handler)(struct uloop_timeout *t);

/* Descriptor watcher. The caller sets `cb` and `fd` and leaves the rest zero. */
struct uloop_fd {
    uloop_fd_handler cb;
    int fd;
    bool eof;        /* the peer will send no more */
    bool error;      /* it failed or hung up, and was taken out of the loop before the callback */
    bool registered; /* it is in the loop */
    uint8_t flags;   /* what it was added with */
};

/* Timer. The caller sets `cb` and leaves the rest zero. */
struct uloop_timeout {
    struct list_head list;
    bool pending;
    uloop_timeout_handler cb;
    struct timeval time; /* when it is due, on the monotonic clock */
};

/* The loop was asked to end; cleared when the next run starts. */
extern bool uloop_cancelled;

/*
 * Creates the loop and takes over SIGINT, SIGTERM and SIGCHLD; a second call while it exists changes nothing.
 * Returns 0, or -1 when the kernel has no descriptors left.
 */
int uloop_init(void);

/*
 * Runs callbacks until uloop_end() or a signal; with `timeout` (milliseconds) of 0 or more makes one pass that waits no
 * longer than that. Returns the number of the signal that ended it, else 0.
 */
int uloop_run_timeout(int timeout);

/* Runs callbacks until uloop_end() or a signal; returns as uloop_run_timeout. */
static inline int uloop_run(void) {
    return uloop_run_timeout(-1);
}

/* Makes the running uloop_run() return after the callback at hand. */
void uloop_end(void);

/* Releases the loop, forgets all timers and gives the signals back. Watchers' descriptors stay open. */
void uloop_done(void);

/*
 * Watches `sock->fd` for `flags` (ULOOP_READ, ULOOP_WRITE), or changes what it is watched for; neither of the two
 * removes it. The first time, the descriptor becomes non-blocking unless ULOOP_BLOCKING is given. Returns 0, or -1 when
 * the descriptor cannot be watched.
 */
int uloop_fd_add(struct uloop_fd *sock, unsigned int flags);

/* Stops watching; the descriptor stays open. Returns 0, also when it was not watched, or -1. */
int uloop_fd_delete(struct uloop_fd *sock);

/* Arms `timeout` for the moment in its `time`. Returns 0, or -1 when it is pending already. */
int uloop_timeout_add(struct uloop_timeout *timeout);

/* Arms or re-arms `timeout` in `msecs` milliseconds (below 0 counts as 0). It fires once. Returns 0. */
int uloop_timeout_set(struct uloop_timeout *timeout, int msecs);

/* Disarms `timeout`. Returns 0, or -1 when it was not pending. */
int uloop_timeout_cancel(struct uloop_timeout *timeout);

#endif
