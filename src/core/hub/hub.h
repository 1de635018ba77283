// The event hub: turns bus events and netlink messages into numbered events and hands each to every module.
#pragma once

#include "core/event.h"

// The hub of the process, for code that holds no config pointer; set once the hub is built.
extern kolt_event_ctx *l_ev;

// Builds the hub that is a member of a config record. Ends the process on any failure.
void event_init(kolt_event_ctx *ev);

// Delivers the start event, then runs the loop until it ends; uloop's result.
int event_loop(kolt_event_ctx *ev);

// Tears the hub down. The modules must be gone.
void event_free(kolt_event_ctx *ev);

// Delivers one event to every subscriber, newest first. `event` is borrowed for the call and may be null.
void event_run_cb(kolt_event_ctx *ev, kolt_event_kind kind, kolt_event *event);

// The configuration record that `ev` is a member of.
config *event_config(kolt_event_ctx *ev);
