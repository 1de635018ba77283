// Leaving a parent, taking one, and which neighbour would be the best.
#pragma once

#include "decide/tree.h"

// The ports by which this node reaches, or would reach, that neighbour as its parent: a bit per slot. An extender's
// relay ports are meant for those behind it, and serve only where no other port leads to the neighbour.
[[nodiscard]] uint32_t upward_ports(const tree &self, uint64_t mac);

// Whether this node, as a root, may ask to become the neighbour's child.
[[nodiscard]] bool may_join(const tree &self, const tree_node &node);

// The neighbour to ask: of the best root, then by a port that is meant for it, then nearest to the root. Null without
// any; those that let a join down rest for a while.
[[nodiscard]] tree_node *best_parent(tree *self);

// Leaves a parent that cannot be reached any more or contradicts itself, and brings root and distance up to date.
void parent_check(tree *self);

// Leaves a parent when another neighbour has been better for long enough.
void parent_compare(tree *self);

void parent_take(tree *self, uint64_t mac);
