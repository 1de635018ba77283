// The streams of an HA table by the client that they begin or end at. Ranking looks a client's streams up here instead
// of scanning the table for every client, so that a period costs the streams plus the clients, not their product.
#pragma once

#include "probes/bridge_tables.h"
#include "probes/clients.h"

#include <cstdint>

constexpr uint32_t KOLT_NO_STREAM = UINT32_MAX;

// The streams of one client MAC, in table order: first and last position in the table of each direction.
struct kolt_client_streams {
    bool nonrelay; // some client with this MAC is not behind a relay port
    uint32_t first_to;
    uint32_t last_to;
    uint32_t first_from;
    uint32_t last_from;
};

// Indexes a table for the clients of a list; false without memory. The index refers to positions of the table and stays
// valid until the next one is made, or the clients are numbered anew; its memory is kept from period to period.
[[nodiscard]] bool kolt_index_streams(const ha_table_entry *table, uint32_t count, const kolt_client_list *clients);

// The streams of a client that was in the list; null for any other MAC.
const kolt_client_streams *kolt_streams_of(const uint8_t *mac);

// The next stream of the same client and direction behind a position; KOLT_NO_STREAM at the end.
uint32_t kolt_next_stream_to(uint32_t position);
uint32_t kolt_next_stream_from(uint32_t position);
