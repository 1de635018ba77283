// Records in, records out.
#include "bridged/tables.h"

#include <cerrno>
#include <cstring>
#include <endian.h>
#include <memory>

namespace {

int write_clients(const bridge_node *node, table_writer *table) {
    for (size_t i = 0; i < node->client_count; i++) {
        const placed_client &client = node->clients[i];
        if (client.placed == 0)
            continue; // it waits for its port
        bridge_hd_record record{};
        memcpy(record.client_mac, client.mac.data(), sizeof(record.client_mac));
        memcpy(record.second_mac, client.second_mac.data(), sizeof(record.second_mac));
        record.port = client.placed;
        table_add(table, record);
    }
    return 0;
}

int write_fdb(bridge_node *node, table_writer *table) {
    return fdb_dump(node->owner->rtnl, node->ifindex,
                    [table](const fdb_record &entry) { table_add(table, table_record_of(entry)); });
}

bridge_ha_record stream_record(const kolt_stream_record &stream, bool reverse) {
    const kolt_stream_key &key = stream.key;
    bridge_ha_record record{};
    record.hash = key.hash;
    memcpy(record.src_mac, reverse ? key.dst : key.src, sizeof(record.src_mac));
    memcpy(record.dst_mac, reverse ? key.src : key.dst, sizeof(record.dst_mac));
    record.src_port = be16toh(reverse ? key.dst_port : key.src_port);
    record.dst_port = be16toh(reverse ? key.src_port : key.dst_port);
    record.stream_kind = key.kind;
    record.port = stream.target;
    record.packets = reverse ? stream.rx_packets : stream.tx_packets;
    record.bytes = reverse ? stream.rx_bytes : stream.tx_bytes;
    record.tx_packets = stream.tx_packets;
    record.tx_bytes = stream.tx_bytes;
    record.flags = reverse ? BRIDGE_HA_MERGEABLE : 0;
    return record;
}

// A stream that came both ways is two records, the second of which the reader adds to the first.
int write_streams(bridge_node *node, table_writer *table) {
    struct free_records {
        void operator()(kolt_stream_record *records) const {
            free(records);
        }
    };
    const kolt_streams &streams = node->owner->streams;
    const size_t room = streams.count();
    const std::unique_ptr<kolt_stream_record, free_records> records(
        static_cast<kolt_stream_record *>(calloc(room + 1, sizeof(kolt_stream_record))));
    if (!records)
        return ENOMEM;
    const size_t count = std::min(room, streams.read({records.get(), room}));
    for (size_t i = 0; i < count; i++) {
        const kolt_stream_record &stream = records.get()[i];
        if (node_find_port_index(node, stream.target) == nullptr)
            continue;
        table_add(table, stream_record(stream, false));
        if (stream.rx_packets != 0)
            table_add(table, stream_record(stream, true));
    }
    return 0;
}

} // namespace

bridge_fdb_record table_record_of(const fdb_record &entry) {
    bridge_fdb_record record{};
    memcpy(record.mac, entry.mac.data(), sizeof(record.mac));
    record.port_low = static_cast<uint8_t>(entry.port & 0xff);
    record.port_high = static_cast<uint8_t>(entry.port >> 8);
    record.is_local = entry.is_local ? 1 : 0;
    record.ageing_timer = entry.age_ticks;
    return record;
}

int tables_write(bridge_node *node, bridge_table code, table_writer *table) {
    switch (code) {
    case BRIDGE_TABLE_HD:
        return write_clients(node, table);
    case BRIDGE_TABLE_FDB:
        return write_fdb(node, table);
    case BRIDGE_TABLE_HA:
        return write_streams(node, table);
    }
    return EINVAL;
}

int tables_write_ports(bridge_node *node, table_writer *table) {
    for (const node_port &port : node->ports) {
        if (port.ifindex == 0)
            continue;
        bridge_port_record record{};
        record.ifindex = port.ifindex;
        table_add(table, record);
    }
    return 0;
}

int tables_write_ethernets(const bridged *self, table_writer *table) {
    for (uint32_t i = 0; i < self->configured.interface_num; i++) {
        const config_interface &interface = self->configured.interfaces[i];
        if (interface.type != KOLT_LINK_ETHERNET)
            continue;
        ethernet_name_record record{};
        memcpy(record.name, interface.name, sizeof(record.name));
        record.name[sizeof(record.name) - 1] = '\0';
        table_add(table, record);
    }
    return 0;
}
