// The ranking of streams written the plain way, to measure the daemon's own against: for every client a scan of the
// whole table for its streams, another for what comes back, and of each of those a scan for the stream that it answers.
#pragma once

#include "probes/clients.h"

// The same result as kolt_rank_streams, in the table and in the clients' records.
void plain_rank_streams(ha_table_entry *table, uint32_t count, const kolt_client_list *clients,
                        const kolt_interface_list *ports);
