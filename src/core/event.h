// Events, and the record of the hub that delivers them: a member of the configuration record, so that modules and
// events reach each other through it.
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
