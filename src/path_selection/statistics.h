// The traffic of the paths in a period, and what it says of streams of small packets.
#pragma once

#include "path_selection/decide/paths.h"
#include "probes/streams/client.h"

// Takes the traffic counters of every present path into its history; 1, or 0 when a table is missing or, after a
// message, a counter cannot be read.
int path_selection_update_uplink_path_stats(const char *bridge, const ps_path_table *paths,
                                            ps_history_table *histories);

// Makes streams of small packets weigh as much as the traffic that they acknowledge.
void path_selection_estimate_ack_streams(const ps_history_table *histories, kolt_client_list *clients);
