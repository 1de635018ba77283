// The broker's answers to messages, and the passing on of events.
#include "protocol.h"

#include "client.h"

namespace {

// A request at hand. Answers carry its sequence and peer.
struct request {
    bus_client &client;
    const ubus_msghdr &header;
    const blob_attr *body;
    ubus_attributes attributes;
};

// A message under construction that releases its buffer.
struct message {
    blob_buf buf = {};
    message() = default;
    message(const message &) = delete;
    message &operator=(const message &) = delete;
    ~message() {
        blob_buf_free(&buf);
    }
};

// Sends a message of one 32-bit attribute.
void send_number(const request &to, ubus_msg_type type, int attribute, uint32_t value) {
    message answer;
    if (blob_buf_init(&answer.buf, 0) == 0 && blob_put_u32(&answer.buf, attribute, value))
        client_send(to.client, type, to.header.seq, to.header.peer, answer.buf.head);
}

int ping(const request &ping) {
    client_send(ping.client, UBUS_MSG_DATA, ping.header.seq, ping.header.peer, ping.body);
    return UBUS_STATUS_OK;
}

// There are no objects with paths, so none is found and the list of all is empty.
int look_up(const request &lookup) {
    return lookup.attributes[UBUS_ATTR_OBJPATH] ? UBUS_STATUS_NOT_FOUND : UBUS_STATUS_OK;
}

int add_object(const request &add) {
    if (add.attributes[UBUS_ATTR_OBJPATH])
        return UBUS_STATUS_NOT_SUPPORTED; // a path is for objects with methods, which are not called through here
    const bus_object *object = bus_add_object(add.client);
    if (!object)
        return UBUS_STATUS_NO_MEMORY;
    send_number(add, UBUS_MSG_DATA, UBUS_ATTR_OBJID, object->id);
    return UBUS_STATUS_OK;
}

int remove_object(const request &removal) {
    const blob_attr *id = removal.attributes[UBUS_ATTR_OBJID];
    if (!id)
        return UBUS_STATUS_INVALID_ARGUMENT;
    bus_object *object = bus_find_object(&removal.client, blob_get_u32(id));
    if (!object)
        return bus_find_object(nullptr, blob_get_u32(id)) ? UBUS_STATUS_PERMISSION_DENIED : UBUS_STATUS_NOT_FOUND;
    send_number(removal, UBUS_MSG_DATA, UBUS_ATTR_OBJID, object->id);
    bus_remove_object(removal.client, object);
    return UBUS_STATUS_OK;
}

// The members of a call's DATA by policy. False when there are none, or they are malformed.
template <size_t n>
bool parse_members(const request &call, const blobmsg_policy (&policy)[n], std::array<blob_attr *, n> &members) {
    const blob_attr *data = call.attributes[UBUS_ATTR_DATA];
    return data && blobmsg_parse(policy, static_cast<int>(n), members.data(), blob_data(data),
                                 static_cast<unsigned>(blob_len(data))) == 0;
}

int register_listener(const request &call) {
    static constexpr blobmsg_policy POLICY[] = {{"object", BLOBMSG_TYPE_INT32}, {"pattern", BLOBMSG_TYPE_STRING}};
    std::array<blob_attr *, 2> members;
    if (!parse_members(call, POLICY, members) || !members[0])
        return UBUS_STATUS_INVALID_ARGUMENT;
    const uint32_t id = blobmsg_get_u32(members[0]);
    bus_object *object = bus_find_object(&call.client, id);
    if (!object)
        return bus_find_object(nullptr, id) ? UBUS_STATUS_PERMISSION_DENIED : UBUS_STATUS_NOT_FOUND;
    return bus_add_pattern(*object, members[1] ? blobmsg_get_string(members[1]) : "*");
}

// Sends the event to one object, whose id takes the place of the one in the message's first attribute.
void send_to_object(bus_client &client, bus_object &object, blob_attr *event) {
    const uint32_t id = htobe32(object.id);
    memcpy(blob_data(static_cast<blob_attr *>(blob_data(event))), &id, sizeof(id));
    client_send(client, UBUS_MSG_INVOKE, ++object.invoke_seq, 0, event);
}

void send_to_all(const char *name, blob_attr *event) {
    list_head *client_link;
    list_for_each(client_link, &bus_clients) {
        bus_client &client = *container_of(client_link, bus_client, list);
        list_head *object_link;
        list_for_each(object_link, &client.objects) {
            bus_object &object = *container_of(object_link, bus_object, list);
            if (bus_listens(object, name))
                send_to_object(client, object, event);
        }
    }
}

int send_event(const request &call) {
    static constexpr blobmsg_policy POLICY[] = {{"id", BLOBMSG_TYPE_STRING}, {"data", BLOBMSG_TYPE_TABLE}};
    std::array<blob_attr *, 2> members;
    if (!parse_members(call, POLICY, members) || !members[0] || !members[1])
        return UBUS_STATUS_INVALID_ARGUMENT;
    const char *name = blobmsg_get_string(members[0]);
    message event;
    if (blob_buf_init(&event.buf, 0) != 0 || !blob_put_u32(&event.buf, UBUS_ATTR_OBJID, 0) ||
        !blob_put_string(&event.buf, UBUS_ATTR_METHOD, name) ||
        !blob_put(&event.buf, UBUS_ATTR_DATA, blobmsg_data(members[1]),
                  static_cast<unsigned>(blobmsg_data_len(members[1]))))
        return UBUS_STATUS_NO_MEMORY;
    send_to_all(name, event.buf.head);
    return UBUS_STATUS_OK;
}

// Calls of the broker's own event object. Other objects only listen.
int invoke(const request &call) {
    const blob_attr *object = call.attributes[UBUS_ATTR_OBJID];
    const blob_attr *method = call.attributes[UBUS_ATTR_METHOD];
    if (!object || !method)
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (blob_get_u32(object) != UBUS_SYSTEM_OBJECT_EVENT)
        return bus_find_object(nullptr, blob_get_u32(object)) ? UBUS_STATUS_METHOD_NOT_FOUND : UBUS_STATUS_NOT_FOUND;
    const auto *name = static_cast<const char *>(blob_data(method));
    if (strcmp(name, "register") == 0)
        return register_listener(call);
    return strcmp(name, "send") == 0 ? send_event(call) : UBUS_STATUS_METHOD_NOT_FOUND;
}

int handle(const request &message) {
    switch (message.header.type) {
    case UBUS_MSG_PING:
        return ping(message);
    case UBUS_MSG_LOOKUP:
        return look_up(message);
    case UBUS_MSG_INVOKE:
        return invoke(message);
    case UBUS_MSG_ADD_OBJECT:
        return add_object(message);
    case UBUS_MSG_REMOVE_OBJECT:
        return remove_object(message);
    case UBUS_MSG_SUBSCRIBE:
    case UBUS_MSG_UNSUBSCRIBE:
    case UBUS_MSG_NOTIFY:
    case UBUS_MSG_MONITOR:
        return UBUS_STATUS_NOT_SUPPORTED;
    default:
        return UBUS_STATUS_INVALID_COMMAND;
    }
}

} // namespace

void protocol_greet(bus_client &client) {
    message greeting;
    if (blob_buf_init(&greeting.buf, 0) == 0)
        client_send(client, UBUS_MSG_HELLO, 0, client.id, greeting.buf.head);
}

void protocol_handle(bus_client &client, const ubus_msghdr &header, const blob_attr *body) {
    if (header.type == UBUS_MSG_STATUS || header.type == UBUS_MSG_DATA)
        return; // listeners' answers to events; nobody waits for them
    request message = {client, header, body, {}};
    const bool whole = wire_parse(body, message.attributes);
    const int status = whole ? handle(message) : UBUS_STATUS_INVALID_ARGUMENT;
    const blob_attr *no_reply = message.attributes[UBUS_ATTR_NO_REPLY];
    if (!no_reply || blob_get_u8(no_reply) == 0)
        send_number(message, UBUS_MSG_STATUS, UBUS_ATTR_STATUS, static_cast<uint32_t>(status));
}
