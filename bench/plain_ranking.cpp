#include "plain_ranking.h"

#include "core/handle.h"
#include "probes/streams.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t PROTOCOL_TCP = 6;
constexpr uint32_t PROTOCOL_UDP = 17;

using stream_array = kolt_handle<ha_table_entry *, free>;

// The first candidate that is the forward direction of `reverse`, or null.
ha_table_entry *find_forward(ha_table_entry *const *candidates, uint32_t count, const ha_table_entry &reverse) {
    for (uint32_t i = 0; i < count; i++) {
        ha_table_entry *forward = candidates[i];
        if (kolt_mac_equal(forward->src_addr, reverse.dst_addr) == 1 && forward->src_port == reverse.dst_port &&
            forward->dst_port == reverse.src_port)
            return forward;
    }
    return nullptr;
}

void merge_reverse(ha_table_entry *forward, const ha_table_entry &reverse) {
    const uint32_t packets = reverse.counter_a;
    const uint32_t bytes = reverse.counter_b;
    forward->reverse_counter_a = packets;
    forward->reverse_counter_b = bytes;
    forward->counter_a += packets;
    forward->counter_b += bytes;
}

uint32_t gather_forward(ha_table_entry *table, uint32_t count, const kolt_client &client,
                        const kolt_interface_list *ports, ha_table_entry **candidates) {
    uint32_t found = 0;
    for (uint32_t i = 0; i < count; i++) {
        if (kolt_mac_equal(table[i].dst_addr, client.mac) == 1 && kolt_check_stream_port_norelay(&table[i], ports) == 1)
            candidates[found++] = &table[i];
    }
    return found;
}

void merge_reverses(const ha_table_entry *table, uint32_t count, const kolt_client &client,
                    const kolt_client_list *clients, ha_table_entry *const *candidates, uint32_t found) {
    for (uint32_t i = 0; i < count; i++) {
        const ha_table_entry &reverse = table[i];
        if (kolt_mac_equal(reverse.src_addr, client.mac) == 0 || kolt_check_nonrelay_client(&reverse, clients) == 0 ||
            (reverse.flags & HA_MERGEABLE) == 0)
            continue;
        if (ha_table_entry *forward = find_forward(candidates, found, reverse))
            merge_reverse(forward, reverse);
    }
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

void collect_client(ha_table_entry *table, uint32_t count, kolt_client *client, const kolt_client_list *clients,
                    const kolt_interface_list *ports) {
    constexpr uint8_t limit = KOLT_MAX_STREAMS;
    const stream_array candidates(static_cast<ha_table_entry **>(calloc(size_t{count} + 1, sizeof(void *))));
    if (!candidates)
        return;
    uint32_t found = 0;
    if (client->hd_port != KOLT_NO_HD_PORT) {
        found = gather_forward(table, count, *client, ports, candidates.get());
        merge_reverses(table, count, *client, clients, candidates.get(), found);
    }
    ha_table_entry *top[KOLT_MAX_STREAMS] = {};
    for (uint32_t i = 0; i < found; i++) {
        ha_table_entry *stream = candidates.get()[i];
        if ((stream->flags & HA_UNRANKED) == 0 && stream->counter_a != 0 && stream->counter_b != 0)
            kolt_insert_top_stream(top, limit, stream);
    }
    for (uint8_t i = 0; i < limit && top[i] != nullptr; i++)
        write_stream(&client->ha[i], *top[i]);
}

} // namespace

void plain_rank_streams(ha_table_entry *table, uint32_t count, const kolt_client_list *clients,
                        const kolt_interface_list *ports) {
    for (uint8_t i = 0; i < clients->count; i++)
        collect_client(table, count, &clients->clients[i], clients, ports);
}
