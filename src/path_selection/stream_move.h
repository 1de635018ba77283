// Moving one stream to another path.
#pragma once

#include "core/hub/netlink_request.h"
#include "path_selection/decide/paths.h"
#include "path_selection/interface_cache.h"
#include "probes/streams/client.h"

// Points a stream at `best` and tells the parent node, whose answer it waits for as long as the budget allows; 1 when
// it was moved, else 0.
int path_selection_update_ha_entry(interface_cache *interfaces, const char *bridge, const ha_entry &entry,
                                   const ps_path &best, kolt_wait_budget *budget);
