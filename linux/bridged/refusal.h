// What keeps this machine, or one of its ports, from being kept free of loops.
#pragma once

#include "bridged/node.h"

#include <cstdio>

// Whether the port may be taken into care; a line in the log says why not. One that traffic control does not see all of
// is refused, since nothing could be promised for it; that it is not known is told as well.
[[nodiscard]] bool refusal_allows_port(const bridge_node *node, const node_port &port);

// A port or bridge in care has changed. When it is set by now as none is taken, that is told once: given up, it would
// carry in circles what the programs still stop.
void refusal_watch_port(node_port *port, const link_info &link);
void refusal_watch_bridge(bridge_node *node);

// Why a bridge that is set like this cannot be kept, in words that follow its name; null when it can.
[[nodiscard]] const char *refusal_of(const bridge_settings &settings);

// Whether this bridge may be the node's: not one that runs a spanning tree of its own, or tells VLANs apart. That it
// may not is logged once, however often it is asked.
[[nodiscard]] bool refusal_allows_bridge(bridge_node *node, uint32_t ifindex);

// Writes one line for each thing that kolt-bridged needs, to `out`, and touches nothing. True when nothing is missing.
[[nodiscard]] bool refusal_check(bridged *self, FILE *out);
