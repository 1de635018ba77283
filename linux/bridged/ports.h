// The ports of the bridges: which there are, and taking them into care.
#pragma once

#include "bridged/node.h"

// Looks at every bridge of the configuration and its ports as the kernel has them now: takes in those that have come,
// lets go of those that have gone. False when the kernel does not list them: then all stays as it is until the loop
// looks again, a second later.
bool ports_look(bridged *self);

// Changes were lost: looks, and looks again a second later, for whoever changes so much may go on with it.
void ports_overrun(bridged *self);

// The kernel told of a change.
void ports_link_changed(bridged *self, const link_info &link);

// Puts every backhaul port of every bridge back as it was found, and takes the programs off, also off interfaces that
// only an earlier process knew. False when some could not be; what was done is logged.
bool ports_release(bridged *self);
