// The tables are fetched once each and walked once each; the streams are ranked in the copy that was fetched.
#include "read_clients.h"

#include "path_selection/decide/acknowledgements.h"
#include "probes/bridge_tables.h"
#include "probes/clients.h"

namespace {

top_path *find_path(top_bridge *bridge, uint32_t ifindex) {
    for (top_path &path : bridge->paths) {
        if (path.configured && path.ifindex == ifindex)
            return &path;
    }
    return nullptr;
}

void count_pinned(top_bridge *bridge) {
    const auto table = fetch_table<hd_entry>(bridge->name);
    bridge->has_clients = static_cast<bool>(table);
    bridge->pinned_entries = static_cast<uint32_t>(table.entries.size());
    for (const hd_entry &entry : table.entries) {
        if (top_path *path = find_path(bridge, entry.port))
            path->pinned++;
    }
}

void add_stream(top_streams *streams, const ha_table_entry &entry) {
    streams->count++;
    streams->bytes += entry.counter_b;
}

// A stream counts for the link that it is on and for both of its ends.
void count_streams(top_bridge *bridge, std::span<const ha_table_entry> table) {
    bridge->stream_entries = static_cast<uint32_t>(table.size());
    for (const ha_table_entry &entry : table) {
        if (top_path *path = find_path(bridge, entry.port))
            add_stream(&path->streams, entry);
        for (const uint8_t *end : {entry.src_addr, entry.dst_addr}) {
            const uint16_t client = bridge->client_numbers.number_of(end);
            if (client != KOLT_NO_CLIENT)
                add_stream(&bridge->loads[client], entry);
        }
    }
}

void read_streams(top_reader *reader, top_bridge *bridge) {
    const auto table = fetch_table<ha_table_entry>(bridge->name);
    bridge->has_streams = static_cast<bool>(table);
    if (!table)
        return;
    count_streams(bridge, table.entries);
    kolt_port_list nonrelay;
    for (config_interface *port : bridge->ports.span()) {
        if (!port->is_relay())
            nonrelay.add(port);
    }
    kolt_rank_streams(&reader->ranking, table.entries, bridge->clients.span(), nonrelay.list());
    if (reader->configuration.param.estimate_ack_enable == 0 || !bridge->adjusts())
        return;
    for (kolt_client &client : bridge->clients.span())
        ps_estimate_acknowledgements(reader->histories, client.ha);
}

} // namespace

void top_read_clients(top_reader *reader, uint32_t number) {
    top_bridge &bridge = reader->node.bridges[number];
    const kolt_interface_list ports = bridge.ports.list();
    bridge.clients.count = kolt_get_client_list(bridge.name, &ports, bridge.clients.clients);
    bridge.client_numbers.assign(bridge.clients.span());
    if (bridge.selects_paths)
        count_pinned(&bridge);
    if (bridge.selects_paths && reader->wants_streams)
        read_streams(reader, &bridge);
}
