// Scans, and scans of scans: whatever is asked, the whole table answers it.
#include "plain_ranking.h"

#include "core/handle.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint8_t STREAMS_OF_ONE_PORT = 10;
constexpr uint32_t PROTOCOL_TCP = 6;
constexpr uint32_t PROTOCOL_UDP = 17;

using stream_array = kolt_handle<ha_table_entry *, free>;

bool is_nonrelay_port(uint32_t ifindex, const kolt_interface_list &ports) {
    for (uint8_t i = 0; i < ports.count; i++) {
        if (ports.interfaces[i]->ifindex == ifindex && ports.interfaces[i]->relay != 1)
            return true;
    }
    return false;
}

bool is_nonrelay_client(const uint8_t *mac, std::span<const kolt_client> clients) {
    for (const kolt_client &client : clients) {
        if (kolt_mac_equal(client.mac, mac) == 1 && client.relay != 1)
            return true;
    }
    return false;
}

// The first candidate that is the forward direction of `reverse`, or null.
ha_table_entry *find_forward(std::span<ha_table_entry *const> candidates, const ha_table_entry &reverse) {
    for (ha_table_entry *forward : candidates) {
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

size_t gather_forward(std::span<ha_table_entry> table, const kolt_client &client, const kolt_interface_list &ports,
                      ha_table_entry **candidates) {
    size_t found = 0;
    for (ha_table_entry &stream : table) {
        if (kolt_mac_equal(stream.dst_addr, client.mac) == 1 && is_nonrelay_port(stream.port, ports))
            candidates[found++] = &stream;
    }
    return found;
}

void merge_reverses(std::span<const ha_table_entry> table, const kolt_client &client,
                    std::span<const kolt_client> clients, std::span<ha_table_entry *const> candidates) {
    for (const ha_table_entry &reverse : table) {
        if (kolt_mac_equal(reverse.src_addr, client.mac) == 0 || !is_nonrelay_client(reverse.src_addr, clients) ||
            (reverse.flags & HA_MERGEABLE) == 0)
            continue;
        if (ha_table_entry *forward = find_forward(candidates, reverse))
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

void rank_client(std::span<ha_table_entry> table, kolt_client *client, std::span<const kolt_client> clients,
                 const kolt_interface_list &ports) {
    const stream_array memory(static_cast<ha_table_entry **>(calloc(table.size() + 1, sizeof(void *))));
    if (!memory || client->hd_port == KOLT_NO_HD_PORT)
        return;
    const std::span<ha_table_entry *> candidates(memory.get(), gather_forward(table, *client, ports, memory.get()));
    merge_reverses(table, *client, clients, candidates);
    ha_table_entry *top[KOLT_MAX_STREAMS] = {};
    for (ha_table_entry *stream : candidates) {
        if ((stream->flags & HA_UNRANKED) == 0 && stream->counter_a != 0 && stream->counter_b != 0)
            plain_insert_stream(top, KOLT_MAX_STREAMS, stream);
    }
    for (uint8_t i = 0; i < KOLT_MAX_STREAMS && top[i] != nullptr; i++)
        write_stream(&client->ha[i], *top[i]);
}

bool is_vacant(const ha_table_entry *stream) {
    return stream == nullptr || stream->counter_b == 0;
}

} // namespace

void plain_insert_stream(ha_table_entry **list, uint8_t limit, ha_table_entry *stream) {
    ha_table_entry **end = list + limit;
    uint8_t same_port = 0;
    ha_table_entry **last_smaller = end;
    for (ha_table_entry **slot = list; slot != end && !is_vacant(*slot); slot++) {
        if ((*slot)->port != stream->port)
            continue;
        same_port++;
        if ((*slot)->counter_b < stream->counter_b)
            last_smaller = slot;
    }
    if (same_port >= STREAMS_OF_ONE_PORT) {
        if (last_smaller == end)
            return;
        *std::copy(last_smaller + 1, end, last_smaller) = nullptr;
    }
    ha_table_entry **place = std::find_if(
        list, end, [stream](const auto *other) { return is_vacant(other) || other->counter_b < stream->counter_b; });
    if (place == end)
        return;
    if (!is_vacant(*place))
        std::copy_backward(place, end - 1, end);
    *place = stream;
}

void plain_rank_streams(std::span<ha_table_entry> table, std::span<kolt_client> clients,
                        const kolt_interface_list &ports) {
    for (kolt_client &client : clients)
        rank_client(table, &client, clients, ports);
}
