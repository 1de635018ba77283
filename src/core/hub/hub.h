// The event hub: turns bus events and netlink messages into numbered events and hands each to every module. Its life.
#pragma once

#include "core/event.h"
#include "core/hub/dispatch.h"

// Builds the hub that is a member of a config record. Ends the process on any failure.
void event_init(kolt_event_ctx *ev);

// Delivers the start event, then runs the loop until it ends; uloop's result.
int event_loop(kolt_event_ctx *ev);

// Tears the hub down. The modules must be gone.
void event_free(kolt_event_ctx *ev);
