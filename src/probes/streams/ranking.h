// From a fetched HA table to each client's busiest streams.
#pragma once

#include "core/interface_list.h"
#include "probes/streams/forward_streams.h"
#include "probes/streams/stream_index.h"

#include <cstdint>
#include <span>

// What ranking needs besides its input. Its user keeps it from period to period, for its memory; nothing in it outlives
// the table that was ranked.
struct kolt_stream_ranking {
    std::span<ha_table_entry> table;
    kolt_stream_index index;      // of the table
    kolt_forward_streams forward; // of the client at hand
    kolt_growing_array<ha_table_entry *> candidates;
};

// Ranks the streams of every client of the list, in list order, into the clients' records, at most KOLT_MAX_STREAMS a
// client; updates the table as it merges reverse streams into their forward ones. Records behind a client's last ranked
// stream stay as they are. Without memory no client gets any.
void kolt_rank_streams(kolt_stream_ranking *ranking, std::span<ha_table_entry> table, std::span<kolt_client> clients,
                       const kolt_interface_list &ports);

// The same for one client of the list that the ranking's table was indexed for, and at most `limit` (up to 20) streams.
void kolt_collect_client_ha_entries(kolt_stream_ranking *ranking, kolt_client *client, const kolt_interface_list &ports,
                                    uint8_t limit);

// 1 when some client of the list with the stream's source MAC is not behind a relay port, else 0. Ranking finds the
// same in its index; this is the question by itself, which nothing in the daemon asks.
int kolt_check_nonrelay_client(const ha_table_entry *entry, const kolt_client_list *clients);

// 1 when the stream's port is a nonrelay port of the list, else 0.
int kolt_check_stream_port_norelay(const ha_table_entry *entry, const kolt_interface_list *ports);
