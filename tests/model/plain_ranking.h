// The one model of the ranking of streams, written the plain way: for every client a scan of the whole table for its
// streams, another for what comes back, and of each of those a scan for the stream that it answers. Tests compare the
// daemon's ranking with it, and the benchmark tells how much faster the daemon's is. It shares records with the daemon
// and nothing else.
#pragma once

#include "core/interface_list.h"
#include "probes/streams/client.h"
#include "probes/streams/ha_table.h"

#include <cstdint>
#include <span>

// Ranks the streams of every client, in list order, into the clients' records, and adds what came back to what went out
// in the table.
void plain_rank_streams(std::span<ha_table_entry> table, std::span<kolt_client> clients,
                        const kolt_interface_list &ports);

// Puts `stream` into a top list of `limit` slots.
void plain_insert_stream(ha_table_entry **list, uint8_t limit, ha_table_entry *stream);
