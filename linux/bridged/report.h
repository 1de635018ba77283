// What the trees say, told to the rest of the node.
#pragma once

#include "bridged/node.h"

// Writes the runtime files that have changed, and tells the bus when a link came or went.
void report_links(bridged *self);

// The same with everything written, and kolt asked to program its bridges anew: at start.
void report_all(bridged *self);
