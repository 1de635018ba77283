// The path selection module: measures the backhaul paths every period and places clients and their streams on them.
#pragma once

#include "core/config.h"
#include "core/event.h"
#include "core/module.h"

// Builds the module and subscribes it; null, after a message, without memory. The start event arms its timer. `main`
// owns it and frees it with the record's own operation.
kolt_module *path_selection_init(config *config);

void path_selection_free(kolt_module *module);

void path_selection_event_cb(config *config, kolt_list *sub, kolt_event_kind kind, kolt_event *event);

// One period: every bridge in turn, then the timer again. `timer` is a module's.
void path_selection_timer_cb(uloop_timeout *timer);

// Logs the path ports of every active bridge with path selection.
void path_selection_show_path_ports(config *config);
