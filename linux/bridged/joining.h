// One port joins a bridge, or leaves it.
#pragma once

#include "bridged/node.h"

// Finds a place for the port, and takes it into care when it is a link. One for which there is no place is told in the
// log.
void port_take_in(bridge_node *node, const link_info &link);

// Whether a link stays closed that came when there were too many, though there is room by now; makes it one of them.
[[nodiscard]] bool port_waits(const bridge_node &node, const node_port &port);
void port_try_again(bridge_node *node, node_port *port);

// Its place is free from then on.
void port_let_go(bridge_node *node, node_port *port);

// Lets go of a port that stays in the bridge under another name: to everybody it is another one. Where that is a link
// too, nothing passes it in between.
void port_end_name(bridge_node *node, node_port *port, const char *name);
