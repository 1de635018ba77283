// Requests that wait for their answer, and the messages that arrive while one is awaited.

#include "client.h"

#include <cstdlib>
#include <poll.h>

namespace {

constexpr unsigned MAX_PENDING_BYTES = 4 * UBUS_MAX_MSGLEN;

struct pending_message {
    list_head list;
    ubus_msghdr header;
    blob_attr *body; // owned
    unsigned bytes;
};

// Takes over the received message. False without memory, or when the bus has sent more than can be kept.
bool keep_for_later(ubus_context *ctx, const ubus_msghdr &header, blob_attr *body) {
    const auto bytes = static_cast<unsigned>(sizeof(pending_message) + blob_raw_len(body));
    auto *message = static_cast<pending_message *>(malloc(sizeof(pending_message)));
    if (!message || ctx->pending_bytes + bytes > MAX_PENDING_BYTES) {
        free(message);
        free(body);
        return false;
    }
    message->header = header;
    message->body = body;
    message->bytes = bytes;
    list_add_tail(&message->list, &ctx->pending);
    ctx->pending_bytes += bytes;
    (void)uloop_timeout_set(&ctx->pending_timer, 0); // cannot fail; nothing else may arrive to have them handled
    return true;
}

pending_message *take_pending(ubus_context *ctx) {
    if (list_empty(&ctx->pending))
        return nullptr;
    pending_message *message = list_first_entry(&ctx->pending, pending_message, list);
    list_del(&message->list);
    ctx->pending_bytes -= message->bytes;
    return message;
}

void free_pending(pending_message *message) {
    free(message->body);
    free(message);
}

struct awaited {
    uint16_t seq;
    uint32_t *object_id; // where the OBJID goes, or null
    bool done;
    int status;
};

void take_answer(awaited &answer, const ubus_msghdr &header, const blob_attr *body) {
    ubus_attributes attributes;
    const bool whole = wire_parse(body, attributes);
    if (header.type == UBUS_MSG_STATUS) {
        const blob_attr *status = attributes[UBUS_ATTR_STATUS];
        answer.done = true;
        answer.status = whole && status ? static_cast<int>(blob_get_u32(status)) : UBUS_STATUS_PARSE_ERROR;
        return;
    }
    if (whole && answer.object_id && attributes[UBUS_ATTR_OBJID])
        *answer.object_id = blob_get_u32(attributes[UBUS_ATTR_OBJID]);
}

// Sorts the message just received: into the answer, among the kept ones, or away when it answers an older request.
bool take_message(ubus_context *ctx, awaited &answer) {
    const ubus_msghdr header = wire_header(*ctx->input);
    blob_attr *body = wire_take_body(*ctx->input);
    if (header.type != UBUS_MSG_STATUS && header.type != UBUS_MSG_DATA)
        return keep_for_later(ctx, header, body);
    if (header.seq == answer.seq)
        take_answer(answer, header, body);
    free(body);
    return true;
}

} // namespace

// NOLINTNEXTLINE(readability-non-const-parameter): written through when the answer comes
int ubus_request(ubus_context *ctx, ubus_msg_type type, uint32_t peer, const blob_attr *body, uint32_t *object_id) {
    if (!wire_can_send(body))
        return UBUS_STATUS_INVALID_ARGUMENT;
    awaited answer = {++ctx->request_seq, object_id, false, 0};
    if (!ubus_send_message(ctx, type, answer.seq, peer, body)) {
        ubus_connection_broken(ctx);
        return UBUS_STATUS_CONNECTION_FAILED;
    }
    const int64_t deadline = ubus_deadline();
    while (!answer.done) {
        const wire_result result = wire_receive(ctx->sock.fd, *ctx->input);
        if (result == wire_result::BROKEN) {
            ubus_connection_broken(ctx);
            return UBUS_STATUS_CONNECTION_FAILED;
        }
        if (result == wire_result::COMPLETE && !take_message(ctx, answer))
            return UBUS_STATUS_NO_MEMORY;
        const bool patient = result == wire_result::MORE ? ubus_wait(ctx->sock.fd, POLLIN, deadline)
                                                         : answer.done || !ubus_expired(deadline);
        if (!patient)
            return UBUS_STATUS_TIMEOUT;
    }
    return answer.status;
}

void ubus_drop_pending(ubus_context *ctx) {
    while (pending_message *message = take_pending(ctx))
        free_pending(message);
}

bool ubus_dispatch_pending(ubus_context *ctx) {
    pending_message *message = take_pending(ctx);
    if (!message)
        return false;
    ubus_dispatch(ctx, message->header, message->body);
    free_pending(message);
    if (!list_empty(&ctx->pending))
        (void)uloop_timeout_set(&ctx->pending_timer, 0); // cannot fail; the next has its turn behind what is due now
    return true;
}
