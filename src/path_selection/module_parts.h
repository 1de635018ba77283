// The steps of a period, for the module's own files.
#pragma once

#include "adaptors/wlan_platform.h"
#include "core/config.h"
#include "path_selection/paths.h"
#include "probes/ap_clients.h"
#include "probes/clients.h"

#include <cstdint>

// Visits every bridge once.
void path_selection_run_period(config *config);

// Measurement. Fills the Wi-Fi rows of the path table from the path ports whose links are up.
void path_selection_get_wlan_path_info(const char *bridge, const kolt_interface_list *path_ports, ps_path_table *paths,
                                       const config *config);

// Adds one pair of rates to a path's samples and returns the processed rate: the value one third of the way down the
// sorted samples, 0 without any.
uint16_t path_selection_get_wlan_path_rate(ps_path_history *history, const wlan_uplink_rate &rates);

// 1 when the utilisation of any present path is above the high threshold, else 0.
int path_selection_check_paths_overload(const config *config, const ps_path_table &paths);

// 1 when every measured Wi-Fi path is above the high threshold and none is much lighter than another, else 0.
int path_selection_check_paths_full_load(const config *config, const ps_path_table &paths);

// Sets the present rows' types and quotas.
void path_selection_init_path_quota(const config *config, ps_path_table *paths);

// Takes the traffic counters of every present path into its history; 1, or 0 when a table is missing or, after a
// message, a counter cannot be read.
int path_selection_update_uplink_path_stats(const char *bridge, const ps_path_table *paths,
                                            ps_history_table *histories);

// Makes streams of small packets weigh as much as the traffic that they acknowledge.
void path_selection_estimate_ack_streams(const ps_history_table *histories, kolt_client_list *clients);

// HD placement. 1 when the node has carried a high data rate in a recent period, else 0.
int path_selection_is_high_data_rate();

// The path that was chosen most often lately, or the row of `type` where that one is absent; adds `type` to the recent
// choices first when `record`.
ps_path *path_selection_find_hd_port(ps_path_table *paths, uint32_t type, bool record);

// Points a client's HD entry at the path `hd_name`. 1 when it is there already or must not move now, 0 when the client
// is not eligible or the library refuses.
int path_selection_update_uplink_hd_table(const char *bridge, const uint8_t *bridge_mac, const kolt_client &client,
                                          const char *hd_name, const uint8_t *reference_mac,
                                          const kolt_ap_client_list *ap_clients);

// HA balancing. Moves a client's heaviest streams from overloaded paths to `best`, within its quota, which it lowers.
void path_selection_update_uplink_ha_table(const config *config, const char *bridge, kolt_client_list *clients,
                                           uint8_t client_index, ps_path *best, ps_path_table *paths);

// How many of a client's streams `best` can take.
uint8_t path_selection_get_adjust_num(const config *config, const ha_entry *entries, const ps_path &best);

// 1 when the path of the interface `port` is overloaded, and much more so than `best`, else 0.
int path_selection_is_path_overloaded(const config *config, uint32_t port, ps_path_table *paths, const ps_path &best);

// Points a stream at `best` and tells the parent node; 1 when it was moved, else 0.
int path_selection_update_ha_entry(const config *config, const char *bridge, const ha_entry &entry,
                                   const ps_path &best);

// Uplink choice. The path with the most capacity for the client, the lower type among equals; null without any.
ps_path *path_selection_get_best_path(const kolt_client &client, ps_path_table *paths);

// 1 when the preferred path can be used, else 0. PATH_NONE never can.
int path_selection_is_prefered_path(const ps_path_table &paths, uint32_t backhaul, uint16_t rate_threshold);

// 1 when the client is not behind a relay port, else 0.
int path_selection_is_norelay_client(const kolt_client &client);
