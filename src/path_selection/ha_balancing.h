// Moving a client's heaviest streams from overloaded paths to the best one.
#pragma once

#include "core/config.h"
#include "core/hub/netlink_request.h"
#include "path_selection/decide/paths.h"
#include "path_selection/decide/stream_share.h"
#include "path_selection/interface_cache.h"
#include "probes/streams/client.h"

#include <cstdint>
#include <span>

// Where streams are moved, on which bridge, and to which path.
struct balancing {
    const config *configuration = nullptr;
    const char *bridge = nullptr;
    interface_cache *interfaces = nullptr;
    ps_path_table *paths = nullptr;
    ps_path *best = nullptr;            // a row of the table
    kolt_wait_budget *budget = nullptr; // for the parent's answers
};

// Moves the client's streams within the quota of the best path, which it lowers.
void path_selection_update_uplink_ha_table(const balancing &at, const kolt_client &client);

// How many of a client's streams the best path can take.
uint8_t path_selection_get_adjust_num(const balancing &at, std::span<const ha_entry> entries);

// 1 when the path of the interface `port` is overloaded, and much more so than the best one, else 0.
int path_selection_is_path_overloaded(const balancing &at, uint32_t port);
