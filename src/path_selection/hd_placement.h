// Pinning clients to a path in the HD table, with movement damped.
#pragma once

#include "core/config.h"
#include "path_selection/decide/paths.h"
#include "path_selection/interface_cache.h"
#include "probes/ap_clients.h"
#include "probes/streams/client.h"

#include <cstdint>

// 1 when the node has carried a high data rate in a recent period, else 0.
int path_selection_is_high_data_rate();

// The path that was chosen most often lately, or the row of `type` where that one is absent; adds `type` to the recent
// choices first when `record`.
ps_path *path_selection_find_hd_port(ps_path_table *paths, kolt_link_type type, bool record);

// Points a client's HD entry at the path `hd_name`. 1 when it is there already or must not move now, 0 when the client
// is not eligible or the library refuses.
int path_selection_update_uplink_hd_table(interface_cache *interfaces, const char *bridge, const uint8_t *bridge_mac,
                                          const kolt_client &client, const char *hd_name, const uint8_t *reference_mac,
                                          const kolt_ap_client_list *ap_clients);
