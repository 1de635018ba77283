// The connection to the bus.
#pragma once

#include "core/event.h"

// Connects to the bus and subscribes to "kolt.*". Ends the process on any failure.
void event_ubus_init(kolt_event_ctx *ev);

// Releases the connection.
void event_ubus_free();
