// What each port is to the node, and which link carries the group frames of each class towards the parent.
#pragma once

#include "decide/tree.h"

// Decides both anew; true when anything is another.
bool roles_decide(tree *self);
