// How a root becomes the child of a neighbour, so that the parents never form a circle.
//
// Only a root may join, and only after the root at the end of the neighbour's chain of parents has granted it. The
// request runs up the chain, the grant back down; whoever has had another parent in between drops the grant. A root
// grants nothing while it waits for a grant itself.
//
// Why that is enough, whatever is lost, late or dead: let every node i of a circle have begun to wait at p(i), been
// granted at g(i) and joined at a(i), p < g < a, all for the last time. When i was granted, the chain from its new
// parent on was intact and nobody in it was waiting, so the chain did not follow the whole circle back to i, who was.
// It left the circle at some node j that did not have its last parent yet and was not waiting for it yet: p(j) > g(i) >
// p(i). So for every node of the circle there is one that began to wait later, and there can be no last one.
#pragma once

#include "decide/tree.h"

// Hands in the joins of a hello that the neighbour `from` sent over a usable link.
void join_receive(tree *self, uint64_t from, const neighbour_frame &frame);

// Begins, repeats or gives up the node's own join. For a root only.
void join_pursue(tree *self, bool beat);

// Forgets whatever was under way: this node has another parent now, or none.
void join_reset(tree *self);
