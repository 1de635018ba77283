// The streams of an HA table by the client that they begin or end at. Ranking looks a client's streams up here instead
// of scanning the table for every client, so that a period costs the streams plus the clients, not their product.
#pragma once

#include "probes/streams/client_index.h"
#include "probes/streams/growing_array.h"
#include "probes/streams/ha_table.h"

#include <cstdint>
#include <span>

constexpr uint32_t KOLT_NO_STREAM = UINT32_MAX;

// The streams of one client MAC, in table order: first and last position in the table of each direction.
struct kolt_client_streams {
    bool nonrelay = false; // some client with this MAC is not behind a relay port
    uint32_t first_to = KOLT_NO_STREAM;
    uint32_t last_to = KOLT_NO_STREAM;
    uint32_t first_from = KOLT_NO_STREAM;
    uint32_t last_from = KOLT_NO_STREAM;
};

struct kolt_stream_index {
    kolt_client_index clients;
    kolt_client_streams streams[KOLT_MAX_LISTED_CLIENTS]; // by the client's number
    // For each position of the table the next stream of the same client and direction, KOLT_NO_STREAM at the end.
    kolt_growing_array<uint32_t> next_to;
    kolt_growing_array<uint32_t> next_from;

    // Indexes a table for the clients of a list, in place of what was indexed before; false without memory. The index
    // refers to positions of the table.
    [[nodiscard]] bool assign(std::span<const ha_table_entry> table, std::span<const kolt_client> list);

    // The streams of a client that was in the list; null for any other MAC.
    [[nodiscard]] const kolt_client_streams *of(const uint8_t *mac) const;
};
