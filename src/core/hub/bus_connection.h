// The connection to the bus: made at the start, missed while it is gone, made anew.
#pragma once

#include "core/event.h"

// Connects to the bus and subscribes to "kolt.*". Ends the process on any failure. A connection that is lost later is
// logged once and tried for every second until there is one again; the daemon goes on with its other sources meanwhile.
void event_ubus_init(kolt_event_ctx *ev);

// Releases the connection and stops trying.
void event_ubus_free();
