// Names and units are said in the manual page; what is not known is null.
#include "show_json.h"

#include "why.h"
#include "words.h"

#include "core/json.h"
#include "path_selection/decide/score.h"

#include <cstdlib>

namespace {

void add(json_object *object, const char *key, json_object *value) {
    (void)json_object_object_add(object, key, value); // fails for lack of memory alone, and then the key is missing
}

void add_number(json_object *object, const char *key, uint64_t number) {
    add(object, key, json_object_new_int64(static_cast<int64_t>(number)));
}

void add_flag(json_object *object, const char *key, bool flag) {
    add(object, key, json_object_new_boolean(flag ? 1 : 0));
}

void add_text(json_object *object, const char *key, const char *text) {
    add(object, key, text != nullptr ? json_object_new_string(text) : nullptr);
}

void add_name(json_object *object, const char *key, const char *name) {
    add_text(object, key, name != nullptr ? top_printable(name).text : nullptr);
}

void add_link(json_object *object, const char *key, kolt_link_type type) {
    add_text(object, key, type < KOLT_LINK_COUNT ? top_link_name(type) : nullptr);
}

// Hundredths of a percent, as a number with two decimals.
void add_percent(json_object *object, const char *key, int64_t hundredths) {
    char text[32];
    (void)snprintf(text, sizeof text, "%s%lld.%02lld", hundredths < 0 ? "-" : "",
                   static_cast<long long>(std::abs(hundredths) / 100),
                   static_cast<long long>(std::abs(hundredths) % 100));
    add(object, key, json_object_new_double_s(static_cast<double>(hundredths) / 100, text));
}

json_object *streams_of(const top_bridge &bridge, const top_streams &streams) {
    if (!bridge.has_streams)
        return nullptr;
    json_object *object = json_object_new_object();
    add_number(object, "count", streams.count);
    add_number(object, "bytes", streams.bytes);
    return object;
}

json_object *traffic_of(const top_traffic &traffic) {
    if (!traffic.counted)
        return nullptr;
    json_object *object = json_object_new_object();
    add_number(object, "rx_bytes", traffic.rx_bytes);
    add_number(object, "tx_bytes", traffic.tx_bytes);
    add(object, "rx_bits_per_s",
        traffic.timed ? json_object_new_int64(static_cast<int64_t>(traffic.rx_bit_rate)) : nullptr);
    add(object, "tx_bits_per_s",
        traffic.timed ? json_object_new_int64(static_cast<int64_t>(traffic.tx_bit_rate)) : nullptr);
    return object;
}

// What is measured of a path; null while it is not.
json_object *measured_of(const top_node &node, const ps_path &row) {
    if (!row.is_present())
        return nullptr;
    json_object *object = json_object_new_object();
    add_number(object, "utilisation_percent", row.util);
    add_number(object, "load_percent", static_cast<uint64_t>(row.adjusted_util()));
    add_flag(object, "hot", row.adjusted_util() > node.configuration->param.high_threshold);
    add_number(object, "rssi", row.util_aux);
    add_number(object, "rate", row.rate);
    add_percent(object, "quota_percent", row.quota);
    add_number(object, "score", row.is_usable() ? ps_score(row) : 0);
    return object;
}

json_object *path_of(const top_node &node, const top_bridge &bridge, kolt_link_type type) {
    const top_path &path = bridge.paths[type];
    json_object *object = json_object_new_object();
    add_link(object, "link", type);
    add_name(object, "port", path.name);
    add_flag(object, "up", path.up);
    add_flag(object, "abnormal", path.abnormal);
    add_number(object, "priority", path.priority);
    add(object, "measured", measured_of(node, bridge.rows[type]));
    add_number(object, "pinned", path.pinned);
    add(object, "streams", streams_of(bridge, path.streams));
    add(object, "traffic", traffic_of(path.traffic));
    return object;
}

json_object *client_of(const top_node &node, const top_bridge &bridge, const kolt_client &client) {
    const top_why why = top_explain(node, bridge, client);
    json_object *object = json_object_new_object();
    add_text(object, "mac", top_mac_text(client.mac).text);
    add_text(object, "port", top_interface_name(bridge, client.port).text);
    add_link(object, "link", client.type);
    add_flag(object, "relay", client.is_relay());
    const bool pinned = client.hd_port != KOLT_NO_HD_PORT;
    add_text(object, "pinned", pinned ? top_interface_name(bridge, client.hd_port).text : nullptr);
    add_link(object, "best", why.best);
    add_text(object, "placement", top_place_word(why.place));
    add(object, "streams", streams_of(bridge, bridge.loads[bridge.client_numbers.number_of(client.mac)]));
    return object;
}

json_object *paths_of(const top_node &node, const top_bridge &bridge) {
    json_object *list = json_object_new_array();
    for (const kolt_link_type type : KOLT_LINKS) {
        if (bridge.paths[type].configured)
            (void)json_object_array_add(list, path_of(node, bridge, type));
    }
    return list;
}

json_object *clients_of(const top_node &node, const top_bridge &bridge) {
    json_object *list = json_object_new_array();
    for (const kolt_client &client : bridge.clients.span())
        (void)json_object_array_add(list, client_of(node, bridge, client));
    return list;
}

json_object *bridge_of(const top_node &node, const top_bridge &bridge) {
    json_object *object = json_object_new_object();
    add_name(object, "name", bridge.name);
    add_flag(object, "active", bridge.active);
    add_flag(object, "loop_avoidance", bridge.avoids_loops);
    add_flag(object, "path_selection", bridge.selects_paths);
    add_number(object, "ports", bridge.ports.count);
    add_flag(object, "overloaded", bridge.overloaded);
    add_flag(object, "full", bridge.full);
    add_flag(object, "adjusting", bridge.adjusts());
    add_flag(object, "cpu_overloaded", bridge.cpu_overloaded);
    add(object, "pinned_entries", bridge.has_clients ? json_object_new_int64(bridge.pinned_entries) : nullptr);
    add(object, "stream_entries", bridge.has_streams ? json_object_new_int64(bridge.stream_entries) : nullptr);
    add(object, "paths", paths_of(node, bridge));
    add(object, "clients", clients_of(node, bridge));
    return object;
}

json_object *stream_of(const top_node &node, const top_bridge &bridge, const ha_entry &stream,
                       const top_why &of_client) {
    json_object *object = json_object_new_object();
    add_text(object, "from", top_mac_text(stream.src_addr).text);
    add_text(object, "to", top_mac_text(stream.dst_addr).text);
    add_number(object, "from_port", stream.src_port);
    add_number(object, "to_port", stream.dst_port);
    add_text(object, "on", top_interface_name(bridge, stream.port).text);
    add_number(object, "bytes", stream.num_bytes);
    if (of_client.best == PATH_NONE)
        return object;
    const top_stream_why why = top_explain_stream(node, bridge, stream, of_client);
    add_percent(object, "share_percent", why.share);
    add_text(object, "placement", top_stream_place_word(why.place));
    return object;
}

json_object *streams_of(const top_node &node, const top_found &found, const top_why &of_client) {
    json_object *list = json_object_new_array();
    for (const ha_entry &stream : found.client->ha) {
        if (kolt_check_ha_entry_valid(&stream) == 0)
            break;
        (void)json_object_array_add(list, stream_of(node, *found.bridge, stream, of_client));
    }
    return list;
}

json_object *why_of(const top_node &node, const uint8_t *mac) {
    const top_found found = top_find_client(node, mac);
    if (found.client == nullptr)
        return nullptr;
    const top_why why = top_explain(node, *found.bridge, *found.client);
    json_object *object = client_of(node, *found.bridge, *found.client);
    add_name(object, "bridge", found.bridge->name);
    add_link(object, "target", why.target);
    add_link(object, "preferred", why.preferred);
    add_flag(object, "preferred_usable", why.is_prefered);
    add(object, "busiest_streams", found.bridge->has_streams ? streams_of(node, found, why) : nullptr);
    return object;
}

json_object *settings_of(const config &configuration) {
    const config_param &param = configuration.param;
    json_object *object = json_object_new_object();
    add_flag(object, "enable", configuration.enable == 1);
    add_number(object, "period_s", param.period / 1000);
    add_number(object, "high_threshold", param.high_threshold);
    add_number(object, "delta_threshold", param.delta_threshold);
    add_number(object, "reserved_ratio", param.reserved_ratio);
    add_flag(object, "cpu_limit", param.cpu_limit != 0);
    return object;
}

json_object *node_of(const top_node &node, const uint8_t *client) {
    json_object *object = json_object_new_object();
    add_text(object, "time", top_time_text(node.seconds).text);
    add_number(object, "read_us", node.read_us);
    add_text(object, "mode", top_mode_name(node.mode));
    add(object, "settings", settings_of(*node.configuration));
    json_object *bridges = json_object_new_array();
    for (const top_bridge &bridge : node.all_bridges())
        (void)json_object_array_add(bridges, bridge_of(node, bridge));
    add(object, "bridges", bridges);
    if (client != nullptr)
        add(object, "client", why_of(node, client));
    json_object *notes = json_object_new_array();
    for (uint8_t i = 0; i < node.notes.count; i++)
        (void)json_object_array_add(notes, json_object_new_string(node.notes.texts[i]));
    add(object, "notes", notes);
    return object;
}

} // namespace

void top_show_json(FILE *out, const top_node &node, const uint8_t *client) {
    const json_ptr object(node_of(node, client));
    (void)fprintf(out, "%s\n", json_object_to_json_string_ext(object.get(), JSON_C_TO_STRING_NOSLASHESCAPE));
}
