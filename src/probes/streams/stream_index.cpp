// One walk over the table appends every stream to the chains of the clients at its ends.
#include "probes/streams/stream_index.h"

namespace {

void append(uint32_t *next, uint32_t *first, uint32_t *last, uint32_t position) {
    if (*last == KOLT_NO_STREAM)
        *first = position;
    else
        next[*last] = position;
    *last = position;
    next[position] = KOLT_NO_STREAM;
}

void index_clients(kolt_stream_index *index, std::span<const kolt_client> list) {
    index->clients.assign(list);
    for (uint16_t i = 0; i < index->clients.count; i++)
        index->streams[i] = {};
    for (const kolt_client &client : list) {
        if (!client.is_relay())
            index->streams[index->clients.number_of(client.mac)].nonrelay = true;
    }
}

} // namespace

bool kolt_stream_index::assign(std::span<const ha_table_entry> table, std::span<const kolt_client> list) {
    if (!next_to.reserve(table.size()) || !next_from.reserve(table.size()))
        return false;
    index_clients(this, list);
    for (uint32_t i = 0; i < table.size(); i++) {
        if (const uint16_t to = clients.number_of(table[i].dst_addr); to != KOLT_NO_CLIENT)
            append(next_to.elements, &streams[to].first_to, &streams[to].last_to, i);
        if (const uint16_t from = clients.number_of(table[i].src_addr); from != KOLT_NO_CLIENT)
            append(next_from.elements, &streams[from].first_from, &streams[from].last_from, i);
    }
    return true;
}

const kolt_client_streams *kolt_stream_index::of(const uint8_t *mac) const {
    const uint16_t number = clients.number_of(mac);
    return number != KOLT_NO_CLIENT ? &streams[number] : nullptr;
}
