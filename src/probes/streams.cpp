#include "probes/streams.h"

#include "adaptors/flow_cache.h"
#include "core/log.h"
#include "probes/forward_streams.h"
#include "probes/growing_array.h"
#include "probes/ports.h"
#include "probes/stream_index.h"
#include "probes/table_buffer.h"

#include <cstring>

namespace {

constexpr uint32_t PROTOCOL_TCP = 6;
constexpr uint32_t PROTOCOL_UDP = 17;

// The forward streams of the client at hand.
kolt_growing_array<ha_table_entry *> candidates;

void merge_reverse(ha_table_entry *forward, const ha_table_entry &reverse) {
    const uint32_t packets = reverse.counter_a;
    const uint32_t bytes = reverse.counter_b;
    forward->reverse_counter_a = packets;
    forward->reverse_counter_b = bytes;
    forward->counter_a += packets;
    forward->counter_b += bytes;
}

uint32_t gather_forward(ha_table_entry *table, const kolt_client_streams &streams, const kolt_interface_list *ports) {
    uint32_t found = 0;
    for (uint32_t i = streams.first_to; i != KOLT_NO_STREAM; i = kolt_next_stream_to(i)) {
        if (kolt_check_stream_port_norelay(&table[i], ports) == 1)
            candidates.elements[found++] = &table[i];
    }
    return found;
}

// Adds what came back to the streams that went out; false without memory.
bool merge_reverses(const ha_table_entry *table, const kolt_client_streams &streams, uint32_t found) {
    if (!streams.nonrelay || found == 0)
        return true;
    if (!kolt_index_forward_streams(candidates.elements, found))
        return false;
    for (uint32_t i = streams.first_from; i != KOLT_NO_STREAM; i = kolt_next_stream_from(i)) {
        if ((table[i].flags & HA_MERGEABLE) == 0)
            continue;
        if (ha_table_entry *forward = kolt_find_forward_stream(table[i]))
            merge_reverse(forward, table[i]);
    }
    return true;
}

// What the flow cache alone knows of a stream is left to it.
void write_stream(ha_entry *record, const ha_table_entry &stream) {
    memcpy(record->src_addr, stream.src_addr, sizeof record->src_addr);
    memcpy(record->dst_addr, stream.dst_addr, sizeof record->dst_addr);
    record->port = stream.port;
    record->hash = stream.hash;
    record->stream_kind = stream.stream_kind;
    record->carried_value = stream.carried_value;
    record->num_bytes = stream.counter_b;
    record->num_pkts = stream.counter_a;
    record->num_txbytes = stream.counter_c2;
    record->num_txpkts = stream.counter_c1;
    record->num_rxbytes = stream.reverse_counter_b;
    record->num_rxpkts = stream.reverse_counter_a;
    record->estimated = 0;
    record->src_port = stream.src_port;
    record->dst_port = stream.dst_port;
    record->protocol = stream.stream_kind == HA_STREAM_UDP ? PROTOCOL_UDP : PROTOCOL_TCP;
}

// The number of slots before the first empty one, or before the first stream without a key.
uint8_t filled_slots(ha_table_entry *const *list, uint8_t limit) {
    uint8_t filled = 0;
    while (filled < limit && list[filled] != nullptr && list[filled]->counter_b != 0)
        filled++;
    return filled;
}

// Makes room for one more stream of a port that has all its slots, at the cost of its last stream that is smaller than
// the new one; false when there is none.
bool make_room_for_port(ha_table_entry **list, uint8_t limit, const ha_table_entry *stream) {
    const uint8_t filled = filled_slots(list, limit);
    uint8_t same_port = 0;
    uint8_t smaller = limit;
    for (uint8_t i = 0; i < filled; i++) {
        if (list[i]->port != stream->port)
            continue;
        same_port++;
        if (list[i]->counter_b < stream->counter_b)
            smaller = i;
    }
    if (same_port < KOLT_MAX_STREAMS_OF_PORT)
        return true;
    if (smaller == limit)
        return false;
    for (uint8_t i = smaller; i + 1 < limit; i++)
        list[i] = list[i + 1];
    list[limit - 1] = nullptr;
    return true;
}

} // namespace

void kolt_insert_top_stream(ha_table_entry **list, uint8_t limit, ha_table_entry *stream) {
    if (!make_room_for_port(list, limit, stream))
        return;
    uint8_t slot = 0;
    while (slot < limit && list[slot] != nullptr && list[slot]->counter_b != 0 &&
           list[slot]->counter_b >= stream->counter_b)
        slot++;
    if (slot == limit)
        return;
    const bool taken = list[slot] != nullptr && list[slot]->counter_b != 0;
    for (uint8_t i = limit; taken && --i > slot;)
        list[i] = list[i - 1];
    list[slot] = stream;
}

void kolt_collect_client_ha_entries(ha_table_entry *table, uint32_t count, kolt_client *client,
                                    const kolt_interface_list *ports, uint8_t limit) {
    if (table == nullptr || count == 0 || client == nullptr || limit > KOLT_MAX_STREAMS)
        return;
    const kolt_client_streams *streams = kolt_streams_of(client->mac);
    if (streams == nullptr || client->hd_port == KOLT_NO_HD_PORT || !candidates.reserve(count))
        return;
    const uint32_t found = gather_forward(table, *streams, ports);
    if (!merge_reverses(table, *streams, found))
        return;
    ha_table_entry *top[KOLT_MAX_STREAMS] = {};
    for (uint32_t i = 0; i < found; i++) {
        ha_table_entry *stream = candidates.elements[i];
        if ((stream->flags & HA_UNRANKED) == 0 && stream->counter_a != 0 && stream->counter_b != 0)
            kolt_insert_top_stream(top, limit, stream);
    }
    for (uint8_t i = 0; i < limit && top[i] != nullptr; i++)
        write_stream(&client->ha[i], *top[i]);
}

void kolt_rank_streams(ha_table_entry *table, uint32_t count, const kolt_client_list *clients,
                       const kolt_interface_list *ports) {
    if (!kolt_index_streams(table, count, clients))
        return; // without memory no client has streams this time
    for (uint8_t i = 0; i < clients->count; i++)
        kolt_collect_client_ha_entries(table, count, &clients->clients[i], ports, KOLT_MAX_STREAMS);
}

int kolt_get_maximal_ha_entries(const char *bridge, kolt_client_list *clients, const kolt_interface_list *ports) {
    void *buffer = nullptr;
    uint32_t count = 0;
    if (kolt_get_duon_bridge_table(bridge, KOLT_TABLE_HA, &buffer, &count) == 0) {
        KOLT_ERROR("get ha table");
        return 0;
    }
    const table_buffer table(buffer);
    kolt_rank_streams(static_cast<ha_table_entry *>(buffer), count, clients, ports);
    (void)kolt_get_maximal_ha_entries_from_fcache(clients, KOLT_MAX_STREAMS, ports); // without a flow cache, none
    return 1;
}

int kolt_get_client_list_ha_entries(const char *bridge, kolt_client_list *clients, const kolt_interface_list *ports) {
    const int result = kolt_get_maximal_ha_entries(bridge, clients, ports);
    if (result == 0)
        KOLT_ERROR("update ha entires failed");
    return result;
}

int kolt_update_stream_entries_stats(const char *bridge) {
    void *table = nullptr;
    uint32_t count = 0;
    if (kolt_get_duon_bridge_table(bridge, KOLT_TABLE_HA, &table, &count) != 1)
        KOLT_ERROR("update ha entires failed");
    const int result = kolt_update_fcache_flow_list(0, 0, 0, 0);
    if (result != 1)
        KOLT_ERROR("update flow cache list failed");
    bridgeFreeTableBuf(table); // null when the fetch failed, which the library allows
    return result;
}

int kolt_check_ha_entry_valid(const ha_entry *entry) {
    static constexpr ha_entry empty;
    return entry != nullptr && memcmp(entry, &empty, sizeof empty) != 0 ? 1 : 0;
}

int kolt_check_nonrelay_client(const ha_table_entry *entry, const kolt_client_list *clients) {
    for (uint8_t i = 0; i < clients->count; i++) {
        const kolt_client &client = clients->clients[i];
        if (kolt_mac_equal(client.mac, entry->src_addr) == 1 && client.relay != 1)
            return 1;
    }
    return 0;
}

int kolt_check_stream_port_norelay(const ha_table_entry *entry, const kolt_interface_list *ports) {
    return kolt_check_norelay_port(entry->port, ports);
}
