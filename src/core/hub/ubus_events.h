// The bus side of the hub: three kinds of events that the node's other daemons publish.
#pragma once

#include "core/event.h"

// The bus callback for one event named `type`; `message` holds its attributes.
void event_ubus_receive_cb(ubus_context *context, ubus_event_handler *handler, const char *type, blob_attr *message);

// The link_state handler: stores the states that `message` carries and delivers a link-state event.
void event_ubus_receive_link_state(kolt_event_ctx *ev, blob_attr *message);
