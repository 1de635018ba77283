// The clients that kolt has placed on links (HD entries): what it asked for, and where the kernel has them.
#pragma once

#include "bridged/node.h"

// Places a client on a port, for as long as that is one of this bridge; 0, or an errno. Without room for one more, the
// one that is placed nowhere or has been without a frame for the longest time makes it; ENOSPC when all are in use.
[[nodiscard]] int clients_add(bridge_node *node, const uint8_t *mac, const uint8_t *second_mac, const char *ifname);

// A client that the process before has placed on a port: it is known again. Then clients_pin makes the bridge's entries
// of all clients anew, wherever they were.
void clients_take_over(bridge_node *node, const uint8_t *mac, uint32_t ifindex);
void clients_pin(bridge_node *node);

[[nodiscard]] bool clients_know(const bridge_node &node, const uint8_t *mac);

// Takes back the client's place; 0, or ENOENT when it has none.
[[nodiscard]] int clients_remove(bridge_node *node, const uint8_t *mac);
void clients_flush(bridge_node *node);

// A port is closed: its clients go to `backup`, or, when that is 0, to wherever the bridge finds them.
void clients_move_off(bridge_node *node, uint32_t ifindex, uint32_t backup);

// Clients whose wished port is open again go back to it.
void clients_place(bridge_node *node);

// Takes back the places of clients that have spoken from elsewhere, as the programs have noted; the rest is left for
// the next turn.
constexpr size_t CLIENTS_ROAMED_A_TURN = 256;
void clients_take_roamed(bridged *self);

// This node hangs on another parent, or on none: where its clients were says nothing any more. Those behind it are
// announced, so that the bridges on the new way find them before they speak.
void clients_announce(bridge_node *node);
