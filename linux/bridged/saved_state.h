// What outlives kolt-bridged, in files of its run folder: the trees and the node's mode, so that a restart moves
// nothing, and how the ports were set before, so that they can be put back.
#pragma once

#include "bridged/node.h"

// Writes the state of this bridge when it differs from what was written last, or, where it cannot, removes what was:
// without it the next process begins anew, which is safe. False when that cannot be done either, and the next process
// would go on from an earlier state.
[[nodiscard]] bool saved_state_write(bridge_node *node);

// Takes over what an earlier process left: true when the tree goes on from there.
[[nodiscard]] bool saved_state_read(bridge_node *node, uint64_t seed);

// Forgets the bridge's state, after its ports were put back.
void saved_state_remove(bridge_node *node);

// The node's mode outlives the process, since kolt may have asked for another one than the command line says. Takes
// over the one that a process with the same command line has left: true when there is one. What another command line
// led to counts no more.
[[nodiscard]] bool saved_mode_read(bridged *self);
void saved_mode_write(const bridged *self);

// Forgets all that was kept, also of bridges and ports that nobody knows any more.
void saved_state_remove_all(const bridged *self);

// How a port was found before kolt-bridged had it, and whether it is shut; false when that was never told.
void saved_port_write(const bridged *self, const node_port &port);
[[nodiscard]] bool saved_port_read(const bridged *self, node_port *port);
void saved_port_remove(const bridged *self, const char *name);
