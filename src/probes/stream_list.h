// The busiest streams of the clients, ranked from the bridge's HA table and completed from the flow cache.
#pragma once

#include "core/interface_list.h"
#include "probes/streams/ranking.h"

// Fills the clients' stream records; 1, or 0 after a message when the HA table cannot be fetched. `ranking` lends its
// memory.
int kolt_get_maximal_ha_entries(const char *bridge, kolt_client_list *clients, const kolt_interface_list *ports,
                                kolt_stream_ranking *ranking);

// The same, with a message of its own on failure.
int kolt_get_client_list_ha_entries(const char *bridge, kolt_client_list *clients, const kolt_interface_list *ports,
                                    kolt_stream_ranking *ranking);

// Has the flow cache refresh its flow list; 1, or 0 after a message. Nothing in the daemon asks for it so far.
int kolt_update_stream_entries_stats(const char *bridge);
