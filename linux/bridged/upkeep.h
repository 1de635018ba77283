// What others do to links that are in care: network managers set a bridge's ports anew, and programs are taken off by
// hand.
#pragma once

#include "bridged/node.h"

// The kernel told how a port is set.
void upkeep_port_told(bridged *self, const bridge_port &described);

// Each second: what was taken off a link is put on it again, and what was set otherwise is set back. A link that cannot
// have the programs as it is comes anew, or is shut; one for which there was no room is tried again.
void upkeep_second(bridged *self);
