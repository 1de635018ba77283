// What the process before has placed in the kernel: clients and streams go on where they are, or leave what is closed.
#pragma once

#include "bridged/node.h"

// A bridge has come, and its tree is begun: remembers how the ports were left.
void takeover_begin(bridge_node *node);

// Its ports are known: fills in the clients that are placed on them. To be followed by settling.
void takeover_clients(bridge_node *node);

// All bridges that are there are settled: what was left on a port that is closed now moves off it, and places that
// belong to nobody are taken back.
void takeover_finish(bridged *self);
