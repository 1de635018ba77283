// Any bytes as what a client of kolt-bridged sends. The first byte chooses how they are read: bit 0 a message of
// protocol 52, bit 1 a greeting, else a call; bit 2 a descriptor came with it. Handlers use all that they are given.
#include "bridged/requests/dispatch.h"
#include "bridged/requests/parse.h"
#include "lib/record_size.h"

#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr int RECORDS = 3;

volatile size_t sink;

void require(bool condition) {
    if (!condition)
        abort();
}

void use_name(const char *name) {
    require(strlen(name) < REQUEST_NAME_SIZE);
    sink = strlen(name);
}

void use_mac(const uint8_t *mac) {
    sink = mac[REQUEST_MAC_SIZE - 1];
}

int use_bridge(void * /*context*/, const char *bridge) {
    require(bridge[0] != '\0');
    use_name(bridge);
    return 0;
}

int use_value(void *context, const char *bridge, int32_t value) {
    sink = static_cast<size_t>(value);
    return use_bridge(context, bridge);
}

int use_port_value(void *context, const char *bridge, const char *ifname, int32_t value) {
    use_name(ifname);
    return use_value(context, bridge, value);
}

int use_port_values(void *context, const char *bridge, const char *ifname, int32_t value, int32_t again) {
    sink = static_cast<size_t>(again);
    return use_port_value(context, bridge, ifname, value);
}

int use_couple(void *context, const char *bridge, const char *ifname, const char *couple, int32_t value) {
    use_name(couple);
    return use_port_value(context, bridge, ifname, value);
}

int use_hd(void *context, const char *bridge, const uint8_t *mac, const uint8_t *second, const char *ifname,
           const char *again) {
    use_mac(mac);
    use_mac(second);
    return use_couple(context, bridge, ifname, again, 0);
}

int use_hd_key(void *context, const char *bridge, const uint8_t *mac, const uint8_t *second, const char *ifname) {
    return use_hd(context, bridge, mac, second, ifname, "");
}

int use_ha(void *context, const char *bridge, const uint8_t *src, const uint8_t *dst, const stream_key &stream,
           const char *ifname) {
    sink = stream.carried_value;
    return use_hd_key(context, bridge, src, dst, ifname);
}

void add_records(table_writer *table, size_t size) {
    const char record[sizeof(bridge_ha_record)] = {};
    for (int i = 0; i < RECORDS; i++)
        table_add_bytes(table, record, size);
}

int use_table(void *context, const char *bridge, bridge_table code, table_writer *table) {
    require(table_record_size(code) != 0);
    add_records(table, table_record_size(code));
    return use_bridge(context, bridge);
}

int use_ports(void *context, const char *bridge, table_writer *table) {
    add_records(table, sizeof(bridge_port_record));
    return use_bridge(context, bridge);
}

int use_ethernets(void * /*context*/, table_writer *table) {
    add_records(table, sizeof(ethernet_name_record));
    return 0;
}

int use_event_info(void *context, const char *bridge, int32_t pid, int32_t events, int32_t protocol) {
    sink = static_cast<size_t>(pid) + static_cast<size_t>(events);
    return use_value(context, bridge, protocol);
}

int use_pid(void * /*context*/, int32_t pid) {
    sink = static_cast<size_t>(pid);
    return 0;
}

int use_stream(void * /*context*/, const moved_stream_record &stream) {
    sink = stream.path;
    return 0;
}

request_handlers handlers() {
    request_handlers result{};
    result.set_bridge_mode = result.set_tcp_sp = result.set_follow_re = use_value;
    result.set_if_group = use_port_values;
    result.set_if_type = result.set_if_class = result.set_if_path = result.set_if_compat = use_port_value;
    result.set_if_broadcast = result.set_needha = use_port_value;
    result.set_couple = use_couple;
    result.get_table = use_table;
    result.add_hd_entry = use_hd;
    result.delete_hd_entries = use_hd_key;
    result.set_ha_entry = use_ha;
    result.flush_hd_table = result.flush_ha_table = result.check_bridge = use_bridge;
    result.flush_fdb = [](void *context, const char *bridge, const char *ifname) {
        return use_port_value(context, bridge, ifname, 0);
    };
    result.set_event_info = use_event_info;
    result.get_ports = use_ports;
    result.get_ethernets = use_ethernets;
    result.register_neighbours = use_pid;
    result.moved_stream = use_stream;
    return result;
}

void serve_call(const uint8_t *message, size_t size, bool has_descriptor) {
    call_request request;
    if (!read_call(message, size, has_descriptor, &request))
        return;
    require(has_descriptor == (request.call == CALL_ADD_EVENT_SOCKET));
    if (has_descriptor) {
        require(request.values[0] == PROTOCOL_BRIDGE_EVENTS || request.values[0] == PROTOCOL_NEIGHBOURS);
        return;
    }
    const call_answer answer = dispatch_call(handlers(), request);
    require(answer.reply.sequence == request.sequence);
    const bool has_records = requested_record_size(request) != 0 && request.capacity > 0;
    require(static_cast<bool>(answer.table) == has_records);
    require(answer.reply.count == (requested_record_size(request) != 0 ? RECORDS : 0));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    const uint8_t how = data[0];
    data++;
    size--;
    if (how & 1) {
        netlink_request request;
        if (read_netlink_request(data, size, &request))
            sink = static_cast<size_t>(dispatch_netlink_request(handlers(), request));
        return 0;
    }
    if (how & 2) {
        connection_kind kind;
        if (read_hello(data, size, &kind))
            require(kind == CONNECTION_CALLS || kind == CONNECTION_NETLINK_REQUESTS);
        return 0;
    }
    serve_call(data, size, (how & 4) != 0);
    return 0;
}
