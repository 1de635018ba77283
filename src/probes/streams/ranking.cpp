// Gathers a client's streams, adds what came back to what went out, and lists the busiest.
#include "probes/streams/ranking.h"

#include "probes/streams/top_list.h"

#include <cstring>
#include <netinet/in.h>

namespace {

void merge_reverse(ha_table_entry *forward, const ha_table_entry &reverse) {
    const uint32_t packets = reverse.counter_a;
    const uint32_t bytes = reverse.counter_b;
    forward->reverse_counter_a = packets;
    forward->reverse_counter_b = bytes;
    forward->counter_a += packets;
    forward->counter_b += bytes;
}

std::span<ha_table_entry *> gather_forward(kolt_stream_ranking *ranking, const kolt_client_streams &streams,
                                           const kolt_interface_list &ports) {
    size_t found = 0;
    for (uint32_t i = streams.first_to; i != KOLT_NO_STREAM; i = ranking->index.next_to.elements[i]) {
        if (kolt_check_stream_port_norelay(&ranking->table[i], &ports) == 1)
            ranking->candidates.elements[found++] = &ranking->table[i];
    }
    return {ranking->candidates.elements, found};
}

// Adds what came back to the streams that went out; false without memory.
bool merge_reverses(kolt_stream_ranking *ranking, const kolt_client_streams &streams,
                    std::span<ha_table_entry *const> found) {
    if (!streams.nonrelay || found.empty())
        return true;
    if (!ranking->forward.assign(found))
        return false;
    for (uint32_t i = streams.first_from; i != KOLT_NO_STREAM; i = ranking->index.next_from.elements[i]) {
        const ha_table_entry &reverse = ranking->table[i];
        if ((reverse.flags & HA_MERGEABLE) == 0)
            continue;
        if (ha_table_entry *answered = ranking->forward.answered_by(reverse))
            merge_reverse(answered, reverse);
    }
    return true;
}

bool can_be_ranked(const ha_table_entry &stream) {
    return (stream.flags & HA_UNRANKED) == 0 && stream.counter_a != 0 && stream.counter_b != 0;
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
    record->protocol = stream.stream_kind == HA_STREAM_UDP ? IPPROTO_UDP : IPPROTO_TCP;
}

} // namespace

void kolt_collect_client_ha_entries(kolt_stream_ranking *ranking, kolt_client *client, const kolt_interface_list &ports,
                                    uint8_t limit) {
    if (ranking->table.empty() || client == nullptr || limit > KOLT_MAX_STREAMS)
        return;
    const kolt_client_streams *streams = ranking->index.of(client->mac);
    if (streams == nullptr || client->hd_port == KOLT_NO_HD_PORT || !ranking->candidates.reserve(ranking->table.size()))
        return;
    const std::span<ha_table_entry *> found = gather_forward(ranking, *streams, ports);
    if (!merge_reverses(ranking, *streams, found))
        return;
    ha_table_entry *top[KOLT_MAX_STREAMS] = {};
    for (ha_table_entry *stream : found) {
        if (can_be_ranked(*stream))
            kolt_insert_top_stream(top, limit, stream);
    }
    for (uint8_t i = 0; i < limit && top[i] != nullptr; i++)
        write_stream(&client->ha[i], *top[i]);
}

void kolt_rank_streams(kolt_stream_ranking *ranking, std::span<ha_table_entry> table, std::span<kolt_client> clients,
                       const kolt_interface_list &ports) {
    if (!ranking->index.assign(table, clients))
        return;
    ranking->table = table;
    for (kolt_client &client : clients)
        kolt_collect_client_ha_entries(ranking, &client, ports, KOLT_MAX_STREAMS);
    ranking->table = {};
}

int kolt_check_nonrelay_client(const ha_table_entry *entry, const kolt_client_list *clients) {
    for (const kolt_client &client : clients->span()) {
        if (kolt_mac_equal(client.mac, entry->src_addr) == 1 && !client.is_relay())
            return 1;
    }
    return 0;
}

int kolt_check_stream_port_norelay(const ha_table_entry *entry, const kolt_interface_list *ports) {
    return kolt_check_norelay_port(entry->port, ports);
}
