// Bringing the kernel to what the trees say, and telling whom it concerns.
#pragma once

#include "bridged/node.h"

// After anything that may have changed the tree of this bridge: sets its ports (first what closes, then, once the
// neighbours were told, what opens), moves clients and streams off links that are lost, and reports.
void settle(bridge_node *node);

// Puts the settings of a port into the kernel: the programs' word and the flags of the bridge.
void settle_port(bridge_node *node, const port_setting &setting);

// Whether the bridge has the port as it was set last; true of one that was never set. The other sets it like that
// again.
[[nodiscard]] bool settle_holds(const bridge_node &node, const bridge_port &described);
void settle_port_again(bridge_node *node, uint32_t ifindex);

// What was placed on a port that is closed now leaves by the next best one. `from`: how the ports were when it was
// open.
void settle_move_off(bridge_node *node, const port_settings &from, uint32_t ifindex);
