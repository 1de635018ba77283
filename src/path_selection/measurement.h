// Measuring the Wi-Fi paths and judging how loaded they are.
#pragma once

#include "core/config.h"
#include "core/interface_list.h"
#include "path_selection/decide/paths.h"

// Fills the Wi-Fi rows of the path table from the path ports whose links are up.
void path_selection_get_wlan_path_info(const char *bridge, const kolt_interface_list *path_ports, ps_path_table *paths,
                                       const config *config);

// 1 when the utilisation of any present path is above the high threshold, else 0.
int path_selection_check_paths_overload(const config *config, const ps_path_table &paths);

// 1 when every measured Wi-Fi path is above the high threshold and none is much lighter than another, else 0.
int path_selection_check_paths_full_load(const config *config, const ps_path_table &paths);

// Sets the present rows' types and quotas; reads the processor's load first.
void path_selection_init_path_quota(const config *config, ps_path_table *paths);
