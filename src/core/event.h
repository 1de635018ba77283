// The event hub: turns ubus events and netlink messages into numbered events and hands each to every module.
#pragma once

#include "core/list.h"
#include "core/ubus.h"

#include <cstdint>

struct config;

enum kolt_event_kind : uint32_t {
    KOLT_EVENT_START = 0,      // once, before the loop runs; no payload
    KOLT_EVENT_CONFIGURE = 1,  // type: work mode, or 3 for the current one
    KOLT_EVENT_LINK_STATE = 2, // type: 1 when the Ethernet link changed
    KOLT_EVENT_BRIDGE = 3,     // type, len, data: a message of the bridge
    KOLT_EVENT_DEBUG = 4,      // type: the new log level
    KOLT_EVENT_NEIGHBOUR = 5,  // type, len, data: a message of the neighbour facility
};

struct kolt_event {
    uint32_t type = 0;
    uint32_t len = 0;        // bytes at data
    uint8_t *data = nullptr; // valid only during the call
};

struct kolt_event_ctx {
    kolt_list subscribers; // newest first
    ubus_event_handler ubus_handler{};
    uloop_fd bridge_fd{};
    uloop_fd wifi_fd{};
    uloop_fd neigh_fd{};
    // The links' states as the last link_state event that named them told; 0 is down.
    uint32_t wifi_2g_state = 0;
    uint32_t wifi_5g_state = 0;
    uint32_t wifi_5g_2_state = 0;
    uint32_t plc_state = 0;
    uint32_t eth_state = 0;
};

// The hub of the process, for code that holds no config pointer; set once the hub is built.
extern kolt_event_ctx *l_ev;

// Builds the hub that is a member of a config record. Ends the process on any failure.
void event_init(kolt_event_ctx *ev);

// Delivers the start event, then runs the loop until it ends; uloop's result.
int event_loop(kolt_event_ctx *ev);

// Tears the hub down. The modules must be gone.
void event_free(kolt_event_ctx *ev);

// Delivers one event to every subscriber, newest first. `event` is borrowed for the call and may be null.
void event_run_cb(kolt_event_ctx *ev, uint32_t kind, kolt_event *event);

// Connects to the bus and subscribes to "kolt.*". Ends the process on any failure.
void event_ubus_init(kolt_event_ctx *ev);

// Releases the bus connection.
void event_ubus_free();

// The bus callback for one event named `type`; `message` holds its attributes.
void event_ubus_receive_cb(ubus_context *context, ubus_event_handler *handler, const char *type, blob_attr *message);

// The link_state handler: stores the states that `message` carries and delivers a link-state event.
void event_ubus_receive_link_state(kolt_event_ctx *ev, blob_attr *message);

// The configuration record that `ev` is a member of.
config *event_config(kolt_event_ctx *ev);
