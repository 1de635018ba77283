#include "linux/support/recorded_node.h"

#include <cstdio>
#include <cstring>

namespace {

using std::to_string;

recorded_node &node(void *context) {
    return *static_cast<recorded_node *>(context);
}

std::string mac(const uint8_t *mac) {
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

std::string list(const std::vector<std::string> &arguments) {
    std::string text;
    for (const std::string &argument : arguments)
        text += (text.empty() ? "" : ", ") + argument;
    return text;
}

std::string stream(const stream_key &key) {
    return list({to_string(key.hash), to_string(key.src_port), to_string(key.dst_port), to_string(key.stream_kind),
                 to_string(key.carried_value)});
}

// One template instance per handler: its name is part of the type.
template <size_t Size> struct name {
    char text[Size];
    constexpr name(const char (&literal)[Size]) {
        for (size_t i = 0; i < Size; i++)
            text[i] = literal[i];
    }
};

template <name Name> int of_bridge(void *context, const char *bridge) {
    return node(context).note(Name.text, bridge);
}

template <name Name> int of_bridge_value(void *context, const char *bridge, int32_t value) {
    return node(context).note(Name.text, list({bridge, to_string(value)}));
}

template <name Name> int of_port_value(void *context, const char *bridge, const char *ifname, int32_t value) {
    return node(context).note(Name.text, list({bridge, ifname, to_string(value)}));
}

void set_bridge_handlers(request_handlers &to) {
    to.set_bridge_mode = of_bridge_value<"set_bridge_mode">;
    to.set_tcp_sp = of_bridge_value<"set_tcp_sp">;
    to.set_follow_re = of_bridge_value<"set_follow_re">;
    to.flush_hd_table = of_bridge<"flush_hd_table">;
    to.flush_ha_table = of_bridge<"flush_ha_table">;
    to.check_bridge = of_bridge<"check_bridge">;
    to.set_event_info = [](void *context, const char *bridge, int32_t pid, int32_t events, int32_t protocol) {
        return node(context).note("set_event_info",
                                  list({bridge, to_string(pid), to_string(events), to_string(protocol)}));
    };
}

void set_port_handlers(request_handlers &to) {
    to.set_if_type = of_port_value<"set_if_type">;
    to.set_if_class = of_port_value<"set_if_class">;
    to.set_if_path = of_port_value<"set_if_path">;
    to.set_if_compat = of_port_value<"set_if_compat">;
    to.set_if_broadcast = of_port_value<"set_if_broadcast">;
    to.set_needha = of_port_value<"set_needha">;
    to.set_if_group = [](void *context, const char *bridge, const char *ifname, int32_t group, int32_t again) {
        return node(context).note("set_if_group", list({bridge, ifname, to_string(group), to_string(again)}));
    };
    to.set_couple = [](void *context, const char *bridge, const char *ifname, const char *couple, int32_t first) {
        return node(context).note("set_couple", list({bridge, ifname, couple, to_string(first)}));
    };
    to.flush_fdb = [](void *context, const char *bridge, const char *ifname) {
        return node(context).note("flush_fdb", list({bridge, ifname}));
    };
}

void set_entry_handlers(request_handlers &to) {
    to.add_hd_entry = [](void *context, const char *bridge, const uint8_t *client, const uint8_t *second,
                         const char *ifname, const char *again) {
        return node(context).note("add_hd_entry", list({bridge, mac(client), mac(second), ifname, again}));
    };
    to.delete_hd_entries = [](void *context, const char *bridge, const uint8_t *client, const uint8_t *second,
                              const char *ifname) {
        return node(context).note("delete_hd_entries", list({bridge, mac(client), mac(second), ifname}));
    };
    to.set_ha_entry = [](void *context, const char *bridge, const uint8_t *src, const uint8_t *dst,
                         const stream_key &key, const char *ifname) {
        return node(context).note("set_ha_entry", list({bridge, mac(src), mac(dst), stream(key), ifname}));
    };
}

void set_table_handlers(request_handlers &to) {
    to.get_table = [](void *context, const char *bridge, bridge_table code, table_writer *table) {
        for (const std::string &record : node(context).tables[code])
            node(context).produce(table, record);
        return node(context).note("get_table", list({bridge, to_string(code)}));
    };
    to.get_ports = [](void *context, const char *bridge, table_writer *table) {
        for (const uint32_t port : node(context).ports)
            node(context).produce(table, raw(bridge_port_record{.ifindex = port, .unused = {}}));
        return node(context).note("get_ports", bridge);
    };
    to.get_ethernets = [](void *context, table_writer *table) {
        for (const std::string &ethernet : node(context).ethernets) {
            ethernet_name_record record{};
            memcpy(record.name, ethernet.data(), std::min(ethernet.size(), sizeof record.name));
            node(context).produce(table, raw(record));
        }
        return node(context).note("get_ethernets", "");
    };
}

void set_event_handlers(request_handlers &to) {
    to.event_socket_added = [](void *context, int32_t protocol, int32_t pid) {
        node(context).note("event_socket_added", list({to_string(protocol), to_string(pid)}));
    };
    to.register_neighbours = [](void *context, int32_t pid) {
        return node(context).note("register_neighbours", to_string(pid));
    };
    to.moved_stream = [](void *context, const moved_stream_record &moved) {
        return node(context).note("moved_stream", list({mac(moved.parent_mac), mac(moved.src_mac), mac(moved.dst_mac),
                                                        to_string(moved.src_port), to_string(moved.dst_port),
                                                        to_string(moved.protocol), to_string(moved.path)}));
    };
}

} // namespace

int recorded_node::note(const std::string &handler, const std::string &arguments) {
    calls.push_back(handler + "(" + arguments + ")");
    if (also)
        also(calls.back());
    return failures[handler];
}

void recorded_node::produce(table_writer *table, const std::string &record) const {
    const std::string bytes = wrong_record_size ? record + "x" : record;
    table_add_bytes(table, bytes.data(), bytes.size());
}

request_handlers recorded_node::handlers() {
    request_handlers result{};
    result.context = this;
    set_bridge_handlers(result);
    set_port_handlers(result);
    set_entry_handlers(result);
    set_table_handlers(result);
    set_event_handlers(result);
    return result;
}
