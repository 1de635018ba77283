/*
 * Client of the message bus: connect, receive events, send events. Everything runs on the thread of the event loop.
 * Functions that return int return 0 or a status code for ubus_strerror().
 */
#ifndef LIBUBUS_H
#define LIBUBUS_H

#include <libubox/blobmsg.h>
#include <libubox/list.h>
#include <libubox/uloop.h>
#include <ubusmsg.h>

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct ubus_context;
struct ubus_event_handler;
struct ubus_wire_input;

/* An event: `type` is its name, `msg` encloses its members. Both are valid during the call. */
typedef void (*ubus_event_handler_t)(struct ubus_context *ctx, struct ubus_event_handler *ev, const char *type,
                                     struct blob_attr *msg);

struct ubus_object {
    struct list_head list;
    const char *name;
    uint32_t id; /* given by the broker; 0 while it does not know the object */
};

/* The caller zeroes it, sets `cb`, and keeps it until the connection is freed. */
struct ubus_event_handler {
    struct ubus_object obj;
    ubus_event_handler_t cb;
};

struct ubus_context {
    struct list_head objects;
    struct list_head pending; /* messages that arrived while an answer was awaited */
    unsigned int pending_bytes;

    struct uloop_fd sock;
    struct uloop_timeout pending_timer;

    uint32_t local_id;
    uint16_t request_seq;

    /*
     * Called once, when the broker has gone or broke the protocol. The default ends the loop when `sock` is in it: the
     * loop takes a socket that has hung up out itself, so a client that was idle then lives on without a bus. It must
     * not free the connection; a timer may.
     */
    void (*connection_lost)(struct ubus_context *ctx);
    bool lost; /* it was called */

    struct ubus_wire_input *input;
};

/* Text for a status code; for unknown codes in a buffer that the next call overwrites. */
const char *ubus_strerror(int error);

/*
 * Connects to the broker at `path` (null: the default path) and waits for its greeting, until a signal comes in
 * between. Also creates the event loop. Returns a connection to be released with ubus_free(), or null with the reason
 * in errno.
 */
struct ubus_context *ubus_connect(const char *path);

/* Takes the connection out of the loop, closes it and releases it. Null is allowed. */
void ubus_free(struct ubus_context *ctx);

/*
 * Has `ev->cb` called for events whose name equals `pattern`, or begins with what stands before a `*` at its end; a
 * null pattern is every event. Waits for the broker's answer, no longer than some seconds.
 */
int ubus_register_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev, const char *pattern);

/* Sends the event `id` with the members of `data` and waits for the broker's answer. */
int ubus_send_event(struct ubus_context *ctx, const char *id, struct blob_attr *data);

/* Has the event loop serve the connection. Returns 0, or -1. */
static inline int ubus_add_uloop(struct ubus_context *ctx) {
    return uloop_fd_add(&ctx->sock, ULOOP_BLOCKING | ULOOP_READ);
}

#ifdef __cplusplus
}
#endif

#endif
