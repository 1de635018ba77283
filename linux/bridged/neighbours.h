// The frames of the neighbour protocol: in from every backhaul port, out to the links that the tree names.
#pragma once

#include "bridged/node.h"

// Opens the port's socket and puts it into the loop. False, with a line in the log, when that failed: the port then
// stays closed.
[[nodiscard]] bool neighbours_listen(node_port *port);
void neighbours_forget(node_port *port);

// Sends every frame that the tree of this bridge has waiting.
void neighbours_send(bridge_node *node);

// Tells the tree how many frames that no node sends its ports have kept out: to be called at each beat.
void neighbours_count_foreign(bridge_node *node);

// Tells the tree on which of the links whose echoes are late other frames have come in: to be called at each beat.
void neighbours_hear(bridge_node *node);
