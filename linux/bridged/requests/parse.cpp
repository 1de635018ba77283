#include "bridged/requests/parse.h"

#include <cstring>

namespace {

// Copies a message that has exactly the size of the record.
template <class Record> bool read_record(const void *message, size_t size, Record *record) {
    if (size != sizeof *record)
        return false;
    memcpy(record, message, sizeof *record);
    return true;
}

bool is_terminated(const char (&name)[REQUEST_NAME_SIZE]) {
    return memchr(name, '\0', sizeof name) != nullptr;
}

bool is_about_a_bridge(uint16_t call) {
    return call != CALL_GET_ETHERNETS && call != CALL_ADD_EVENT_SOCKET;
}

bool has_good_names(const call_request &request) {
    return is_terminated(request.bridge) && is_terminated(request.ifname) && is_terminated(request.other_name) &&
           (request.bridge[0] != '\0') == is_about_a_bridge(request.call);
}

bool is_event_protocol(int32_t protocol) {
    return protocol == PROTOCOL_BRIDGE_EVENTS || protocol == PROTOCOL_NEIGHBOURS;
}

} // namespace

bool read_hello(const void *message, size_t size, connection_kind *kind) {
    connection_hello hello;
    if (!read_record(message, size, &hello) || hello.magic != REQUESTS_MAGIC || hello.version != REQUESTS_VERSION)
        return false;
    if (hello.kind != CONNECTION_CALLS && hello.kind != CONNECTION_NETLINK_REQUESTS)
        return false;
    *kind = static_cast<connection_kind>(hello.kind);
    return true;
}

bool read_call(const void *message, size_t size, bool has_descriptor, call_request *request) {
    if (!read_record(message, size, request))
        return false;
    if (request->call == 0 || request->call >= CALL_CODE_END || request->reserved != 0 || !has_good_names(*request))
        return false;
    if (request->call != CALL_ADD_EVENT_SOCKET)
        return !has_descriptor;
    return has_descriptor && is_event_protocol(request->values[0]);
}

bool read_netlink_request(const void *message, size_t size, netlink_request *request) {
    *request = {};
    if (size < sizeof request->header)
        return false;
    memcpy(&request->header, message, sizeof request->header);
    if (request->header.nlmsg_len != size)
        return false;
    const char *payload = static_cast<const char *>(message) + sizeof request->header;
    const size_t payload_size = size - sizeof request->header;
    switch (request->header.nlmsg_type) {
    case NETLINK_REGISTER_NEIGHBOURS:
        return read_record(payload, payload_size, &request->pid);
    case NETLINK_MOVED_STREAM:
        return read_record(payload, payload_size, &request->stream);
    default:
        return true;
    }
}
