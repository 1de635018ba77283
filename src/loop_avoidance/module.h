// The loop avoidance module: programs every loop-avoiding bridge so that broadcast cannot circle between the backhaul
// links, and forgets stale stream placement afterwards. It keeps no state of its own.
#pragma once

#include "core/config.h"
#include "core/event.h"
#include "core/module.h"

// Builds the module and subscribes it; null, after a message, without memory. `main` owns it and frees it with the
// record's own operation.
kolt_module *loop_avoidance_init(config *config);

void loop_avoidance_free(kolt_module *module);

void loop_avoidance_event_cb(config *config, kolt_list *sub, kolt_event_kind kind, kolt_event *event);

// Flushes the HA table of every active loop-avoiding bridge.
void loop_avoidance_flush_ha_table(config *config);
