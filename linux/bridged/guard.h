// Taking one backhaul port into care, and giving it back.
#pragma once

#include "bridged/node.h"

// Puts the programs on the port and listens to its neighbours: nothing may pass it from then on until the tree says so.
// False when that cannot be; a line in the log says why, and the bridge is to keep the port shut.
[[nodiscard]] bool guard_port(bridge_node *node, node_port *port);

// Tells the programs who answers probes on the port, and from which address. False: no such port number.
bool guard_identify(const bridge_node *node, const node_port &port);

// Whether the programs are still on the port, as far as can be seen.
[[nodiscard]] bool guard_stands(const bridge_node &node, const node_port &port);

// Puts them on again. False when that cannot be; a line in the log says what became of it.
[[nodiscard]] bool guard_stand_again(const bridge_node &node, const node_port &port);

// A port that is shut has changed: the kernel may have opened it.
void guard_keep_shut(const bridge_node *node, const node_port &port);

// The port comes anew as the link that has the name. The programs stay on it, and what it was set to before is kept
// under that name.
void guard_rename(const bridge_node *node, node_port *port, const char *name);

// The port has left its bridge: it is somebody else's from then on, and with the programs on it nothing would pass.
void guard_end(const bridge_node *node, const node_port *port);

// Takes the programs off a port and forgets how it was found. False when they are still on it, which is logged.
bool guard_take_off(bridged *self, const node_port &port);

// Puts the port back as it was found, with its bridge staying as it is. False when some of it could not be, which is
// logged.
[[nodiscard]] bool guard_put_back(bridged *self, const node_port *port);
