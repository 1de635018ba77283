// Handing events to the modules: what the hub's sources need of it.
#pragma once

#include "core/event.h"

// The hub of the process, for code that holds no config pointer; set once the hub is built.
extern kolt_event_ctx *l_ev;

// Delivers one event to every subscriber, newest first. `event` is borrowed for the call and may be null.
void event_run_cb(kolt_event_ctx *ev, kolt_event_kind kind, kolt_event *event);

// The configuration record that `ev` is a member of.
config *event_config(kolt_event_ctx *ev);
