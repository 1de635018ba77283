// A bridge of the configuration comes, or goes. Its ports are another matter.
#pragma once

#include "bridged/node.h"

// Tells kolt of something that happened to a bridge or a port, a BRIDGE_EVENT_*.
void bridges_tell(bridged *self, uint16_t type);

// The bridge with this name is there, or was looked at again. One that is refused is not taken.
void bridge_came(bridge_node *node, const link_info &link);

// The same for what the kernel tells of any interface. Whether the node's bridge is one that was not there before.
bool bridge_changed(bridge_node *node, const link_info &link);

// The node's bridge is not there any more.
void bridge_gone(bridge_node *node);

// Lets go of the node's bridge when it was deleted, or has the name of another one of the configuration. All nodes do
// so before one takes a bridge: none is to be in two trees.
void bridge_left(bridge_node *node, const link_info &link);
