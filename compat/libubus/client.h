// What the parts of the bus client share.
#pragma once

#include "wire.h"

// How long the broker may take to accept bytes, or to answer a request.
constexpr int UBUS_PATIENCE_MS = 5000;

// A message under construction that releases its buffer.
struct ubus_message {
    blob_buf buf = {};
    ubus_message() = default;
    ubus_message(const ubus_message &) = delete;
    ubus_message &operator=(const ubus_message &) = delete;
    ~ubus_message() {
        blob_buf_free(&buf);
    }
};

// The client of the broker at the other end of a connected, non-blocking socket, which it takes over in any case.
// Returns as ubus_connect().
[[nodiscard]] ubus_context *ubus_adopt(int fd);

// The moment, in milliseconds of the monotonic clock, when patience with what starts now ends.
int64_t ubus_deadline();

bool ubus_expired(int64_t deadline);

// Whether the event loop was told to end.
bool ubus_loop_ending();

// Waits until `fd` is ready for `events` (of poll). False at the deadline, and when a signal ends the loop before that.
[[nodiscard]] bool ubus_wait(int fd, short events, int64_t deadline);

// Sends one message, header numbers in host order. False when it is too long or the broker does not take it.
[[nodiscard]] bool ubus_send_message(ubus_context *ctx, ubus_msg_type type, uint16_t seq, uint32_t peer,
                                     const blob_attr *body);

// Cuts the connection, whose stream can no longer be followed, and tells its owner the first time.
void ubus_connection_broken(ubus_context *ctx);

// Sends a request and waits for its STATUS, whose code it returns; the OBJID of a DATA that comes before goes to
// `object_id` unless that is null. Other messages are kept for ubus_dispatch_pending().
[[nodiscard]] int ubus_request(ubus_context *ctx, ubus_msg_type type, uint32_t peer, const blob_attr *body,
                               uint32_t *object_id);

// Releases the messages that were kept.
void ubus_drop_pending(ubus_context *ctx);

// Handles the oldest message that was kept; false when there is none. The others have their turns after it.
bool ubus_dispatch_pending(ubus_context *ctx);

// Handles one message that is no answer.
void ubus_dispatch(ubus_context *ctx, const ubus_msghdr &header, const blob_attr *body);
