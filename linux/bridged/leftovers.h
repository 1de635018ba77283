// What an earlier process has left on interfaces that are no links of this one.
#pragma once

#include "bridged/node.h"

enum leftovers_of : uint8_t {
    LEFTOVERS_OF_KEPT, // the ports of a bridge that is refused stay as they are: nobody else keeps them from circling
    LEFTOVERS_OF_ALL,
};

// Puts every such interface back as it was found: a port that is for hosts now, one that has left its bridge, those of
// a bridge that is not configured any more. All ports of the bridges must have been taken in. False when some of it
// could not be done, which is logged.
bool leftovers_give_back(bridged *self, leftovers_of which);
