// Every name is read to its end, every MAC to its last byte, and every number once.
#include "support/bridged_handlers.h"

#include "lib/record_size.h"
#include "support/input.h"

namespace {

volatile size_t sink;

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
    for (int i = 0; i < HANDLED_RECORDS; i++)
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

} // namespace

request_handlers thorough_handlers() {
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
