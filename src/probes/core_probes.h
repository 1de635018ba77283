// What the daemon core itself asks of the node: names, the work mode and link states, bridges and their ports. The
// core includes nothing else of this folder.
#pragma once

#include "core/names.h"
#include "probes/node_state.h"
#include "probes/ports.h"
