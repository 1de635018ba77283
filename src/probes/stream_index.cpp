#include "probes/stream_index.h"

#include "probes/client_index.h"
#include "probes/growing_array.h"

namespace {

kolt_client_streams streams[KOLT_MAX_LISTED_CLIENTS]; // by the client's number
kolt_growing_array<uint32_t> next_to;
kolt_growing_array<uint32_t> next_from;

void index_clients(const kolt_client_list &list) {
    kolt_index_clients(list.clients, list.count);
    for (uint8_t i = 0; i < list.count; i++)
        streams[i] = {false, KOLT_NO_STREAM, KOLT_NO_STREAM, KOLT_NO_STREAM, KOLT_NO_STREAM};
    for (uint8_t i = 0; i < list.count; i++) {
        if (list.clients[i].relay != 1)
            streams[kolt_client_number(list.clients[i].mac)].nonrelay = true;
    }
}

void append(uint32_t *next, uint32_t *first, uint32_t *last, uint32_t position) {
    if (*last == KOLT_NO_STREAM)
        *first = position;
    else
        next[*last] = position;
    *last = position;
    next[position] = KOLT_NO_STREAM;
}

} // namespace

bool kolt_index_streams(const ha_table_entry *table, uint32_t count, const kolt_client_list *clients) {
    if (!next_to.reserve(count) || !next_from.reserve(count))
        return false;
    index_clients(*clients);
    for (uint32_t i = 0; i < count; i++) {
        if (const uint16_t to = kolt_client_number(table[i].dst_addr); to != KOLT_NO_CLIENT)
            append(next_to.elements, &streams[to].first_to, &streams[to].last_to, i);
        if (const uint16_t from = kolt_client_number(table[i].src_addr); from != KOLT_NO_CLIENT)
            append(next_from.elements, &streams[from].first_from, &streams[from].last_from, i);
    }
    return true;
}

const kolt_client_streams *kolt_streams_of(const uint8_t *mac) {
    const uint16_t number = kolt_client_number(mac);
    return number != KOLT_NO_CLIENT ? &streams[number] : nullptr;
}

uint32_t kolt_next_stream_to(uint32_t position) {
    return next_to.elements[position];
}

uint32_t kolt_next_stream_from(uint32_t position) {
    return next_from.elements[position];
}
