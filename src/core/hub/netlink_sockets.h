// The three netlink sockets that the hub watches: bridge events, link notifications, neighbour messages.
#pragma once

#include "core/event.h"

#include <cstddef>

struct config;

constexpr int KOLT_NETLINK_BRIDGE = 39;
constexpr int KOLT_NETLINK_NEIGHBOUR = 53;

constexpr size_t KOLT_NETLINK_BUFFER_SIZE = 16384; // the largest datagram that a watched socket takes

// Each opens, binds and watches one socket. They end the process on any failure.
void event_bridge_init(kolt_event_ctx *ev);
void event_wifi_init(kolt_event_ctx *ev);
void event_neighbor_init(kolt_event_ctx *ev);

// Registers this process as the receiver of the events of every active bridge; a refusal is logged.
void event_bridge_set_event(config *config);
