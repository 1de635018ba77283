// The loop avoidance module: programs every loop-avoiding bridge so that broadcast cannot circle between the backhaul
// links, and forgets stale stream placement afterwards. It keeps no state of its own.
#pragma once

#include "core/config.h"
#include "core/module.h"

#include <cstdint>

// Builds the module and subscribes it; null, after a message, without memory. `main` owns it and frees it with the
// record's own operation.
kolt_module *loop_avoidance_init(config *config);

void loop_avoidance_free(kolt_module *module);

void loop_avoidance_event_cb(config *config, kolt_list *sub, kolt_event_kind kind, kolt_event *event);

// Programs every active loop-avoiding bridge in full for a work mode. Refusals of the library are logged and survived.
void loop_avoidance_configure_bridge_with_mode(config *config, uint32_t mode);

// The same for the node's current work mode.
void loop_avoidance_reconfigure(config *config);

// The nonrelay port of a broadcast class that is to carry broadcast: the best liked of the links that are up, the first
// of equals; null when the class has no nonrelay port.
config_interface *loop_avoidance_pick_bcast_nonrelay_port(config_interface **ports, uint32_t count,
                                                          uint8_t bcast_class);

// Programs only the ports' broadcast permission again.
void loop_avoidance_set_bcast_port(config *config);

// Flushes the HA table of every active loop-avoiding bridge.
void loop_avoidance_flush_ha_table(config *config);

// Cleans up WDS leftovers of the station that a bridge event is about. `payload` holds at least
// LOOP_AVOIDANCE_STATION_EVENT_SIZE bytes, or is null.
void loop_avoidance_delete_wds_entry(config *config, const uint8_t *payload);

constexpr uint32_t LOOP_AVOIDANCE_STATION_EVENT_SIZE = 13; // bytes of a station event that are read

// The name of a work mode in the log.
const char *kolt_work_mode_name(uint32_t mode);
