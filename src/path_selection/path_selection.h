// The path selection module: measures the backhaul paths every period and places clients and their streams on them.
#pragma once

#include "core/config.h"
#include "core/module.h"
#include "path_selection/paths.h"
#include "probes/clients.h"

#include <cstdint>

enum path_selection_table : uint32_t { TABLE_HA = 0, TABLE_HD = 1 };

// Builds the module and subscribes it; null, after a message, without memory. The start event arms its timer. `main`
// owns it and frees it with the record's own operation.
kolt_module *path_selection_init(config *config);

void path_selection_free(kolt_module *module);

void path_selection_event_cb(config *config, kolt_list *sub, kolt_event_kind kind, kolt_event *event);

// One period: every bridge in turn, then the timer again.
void path_selection_timer_cb(uloop_timeout *timer);

// Logs the path ports of every active bridge with path selection.
void path_selection_show_path_ports(config *config);

// Flushes a table of every active loop-avoiding bridge.
void path_selection_flush_table(config *config, uint32_t table);

// Points the HD entries of every active loop-avoiding bridge at the link `link`; only TABLE_HD is supported.
// `link_states` has one state a link type.
void path_selection_update_table(config *config, uint32_t table, const uint32_t *link_states, uint32_t link);

// The body of one period for one bridge.
void path_selection_update_uplink_paths(config *config, const char *bridge, const kolt_interface_list *path_ports,
                                        const kolt_interface_list *nonrelay_ports, kolt_client_list *clients);
