// Events: registering for them, receiving them, sending them.

#include "client.h"

namespace {

// Starts a call of the broker's event object. Returns the cookie of its open DATA, or null without memory.
void *begin_event_call(blob_buf *buf, const char *method) {
    if (blob_buf_init(buf, 0) != 0 || !blob_put_u32(buf, UBUS_ATTR_OBJID, UBUS_SYSTEM_OBJECT_EVENT) ||
        !blob_put_string(buf, UBUS_ATTR_METHOD, method))
        return nullptr;
    return blob_nest_start(buf, UBUS_ATTR_DATA);
}

int end_event_call(ubus_context *ctx, blob_buf *buf, void *data) {
    blob_nest_end(buf, data);
    return ubus_request(ctx, UBUS_MSG_INVOKE, UBUS_SYSTEM_OBJECT_EVENT, buf->head, nullptr);
}

// Makes the object known to the broker, which names it by an id.
int add_object(ubus_context *ctx, ubus_object *object) {
    ubus_message message;
    if (blob_buf_init(&message.buf, 0) != 0)
        return UBUS_STATUS_NO_MEMORY;
    uint32_t id = 0;
    const int status = ubus_request(ctx, UBUS_MSG_ADD_OBJECT, 0, message.buf.head, &id);
    if (status != UBUS_STATUS_OK)
        return status;
    if (id == 0)
        return UBUS_STATUS_NO_DATA;
    object->id = id;
    list_add_tail(&object->list, &ctx->objects);
    return UBUS_STATUS_OK;
}

ubus_object *find_object(ubus_context *ctx, uint32_t id) {
    list_head *link;
    list_for_each(link, &ctx->objects) {
        ubus_object *object = container_of(link, ubus_object, list);
        if (object->id == id)
            return object;
    }
    return nullptr;
}

// Calls the handler that the message is for; returns the status to answer with.
int deliver(ubus_context *ctx, uint32_t object_id, const ubus_attributes &attributes) {
    ubus_object *object = find_object(ctx, object_id);
    if (!object)
        return UBUS_STATUS_NOT_FOUND;
    const blob_attr *method = attributes[UBUS_ATTR_METHOD];
    if (!method || !attributes[UBUS_ATTR_DATA])
        return UBUS_STATUS_INVALID_ARGUMENT;
    ubus_event_handler *handler = container_of(object, ubus_event_handler, obj);
    if (handler->cb)
        handler->cb(ctx, handler, static_cast<const char *>(blob_data(method)), attributes[UBUS_ATTR_DATA]);
    return UBUS_STATUS_OK;
}

void answer(ubus_context *ctx, const ubus_msghdr &header, int status, uint32_t object_id) {
    ubus_message message;
    if (blob_buf_init(&message.buf, 0) != 0 ||
        !blob_put_u32(&message.buf, UBUS_ATTR_STATUS, static_cast<uint32_t>(status)) ||
        !blob_put_u32(&message.buf, UBUS_ATTR_OBJID, object_id))
        return;
    if (!ubus_send_message(ctx, UBUS_MSG_STATUS, header.seq, header.peer, message.buf.head))
        ubus_connection_broken(ctx);
}

} // namespace

void ubus_dispatch(ubus_context *ctx, const ubus_msghdr &header, const blob_attr *body) {
    ubus_attributes attributes;
    if (header.type != UBUS_MSG_INVOKE || !wire_parse(body, attributes) || !attributes[UBUS_ATTR_OBJID])
        return; // nothing that an answer could name
    const blob_attr *no_reply = attributes[UBUS_ATTR_NO_REPLY];
    const bool silent = no_reply && blob_get_u8(no_reply) != 0;
    const uint32_t object_id = blob_get_u32(attributes[UBUS_ATTR_OBJID]);
    const int status = deliver(ctx, object_id, attributes);
    if (!silent)
        answer(ctx, header, status, object_id);
}

int ubus_register_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev, const char *pattern) {
    if (ev->obj.id == 0) {
        if (ev->obj.name)
            return UBUS_STATUS_INVALID_ARGUMENT; // events go to nameless objects
        const int status = add_object(ctx, &ev->obj);
        if (status != UBUS_STATUS_OK)
            return status;
    }
    ubus_message message;
    void *data = begin_event_call(&message.buf, "register");
    if (!data || blobmsg_add_u32(&message.buf, "object", ev->obj.id) != 0 ||
        (pattern && blobmsg_add_string(&message.buf, "pattern", pattern) != 0))
        return UBUS_STATUS_NO_MEMORY;
    return end_event_call(ctx, &message.buf, data);
}

int ubus_send_event(struct ubus_context *ctx, const char *id, struct blob_attr *data) {
    ubus_message message;
    void *call = begin_event_call(&message.buf, "send");
    if (!call || blobmsg_add_string(&message.buf, "id", id) != 0 ||
        blobmsg_add_field(&message.buf, BLOBMSG_TYPE_TABLE, "data", blob_data(data),
                          static_cast<unsigned>(blob_len(data))) != 0)
        return UBUS_STATUS_NO_MEMORY;
    return end_event_call(ctx, &message.buf, call);
}
