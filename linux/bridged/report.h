// What the trees say, told to the rest of the node.
#pragma once

#include "bridged/node.h"

// Writes the runtime files that have changed, and tells the bus when a link came or went.
void report_links(bridged *self);

// At the start, before which the bus is told nothing: everything is written, and kolt asked to program its bridges
// anew. Of the links it is told when they are others than those that the process before has told.
void report_all(bridged *self);
