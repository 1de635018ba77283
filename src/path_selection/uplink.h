// One bridge's share of a period, once its ports and clients are known.
#pragma once

#include "core/config.h"
#include "core/hub/netlink_request.h"
#include "core/interface_list.h"
#include "path_selection/decide/paths.h"
#include "probes/streams/ranking.h"

#include <cstdint>

// Measures the paths, then places every client and, where paths are unevenly loaded, its streams. `ranking` lends its
// memory; the budget is for the answers of the parent node to all moves of a period.
void path_selection_update_uplink_paths(config *config, const char *bridge, const kolt_interface_list *path_ports,
                                        const kolt_interface_list *nonrelay_ports, kolt_client_list *clients,
                                        kolt_stream_ranking *ranking, kolt_wait_budget *budget);

// The path with the most capacity for the client, the lower type among equals; null without any.
ps_path *path_selection_get_best_path(const kolt_client &client, ps_path_table *paths);

// 1 when the preferred path can be used, else 0. PATH_NONE never can.
int path_selection_is_prefered_path(const ps_path_table &paths, kolt_link_type backhaul, uint16_t rate_threshold);

// 1 when the client is not behind a relay port, else 0.
int path_selection_is_norelay_client(const kolt_client &client);
