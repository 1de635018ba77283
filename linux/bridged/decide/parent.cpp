#include "decide/parent.h"

#include "decide/join.h"
#include "decide/neighbours.h"

#include <algorithm>

namespace {

enum offer : uint8_t {
    OFFER_NONE,
    OFFER_BETTER_ROOT,
    OFFER_SHORTER_WAY,
    OFFER_OWN, // from this node itself, which would make the best root
};

bool is_relay_only(const tree &self, uint64_t mac) {
    if (rank_of(self.id) == NODE_RANK_ROOT)
        return false;
    const uint32_t ports = upward_ports(self, mac);
    for (size_t slot = 0; slot < self.port_slots; slot++) {
        if ((ports >> slot & 1) != 0 && self.ports[slot].wish.group == PORT_NONRELAY)
            return false;
    }
    return true;
}

// Whether a place below `a` is better than one below `b`.
bool is_better(const tree &self, const tree_node &a, const tree_node &b) {
    if (a.root != b.root)
        return a.root < b.root;
    const bool relay_a = is_relay_only(self, node_mac(a.id));
    const bool relay_b = is_relay_only(self, node_mac(b.id));
    if (relay_a != relay_b)
        return relay_b;
    return a.hops < b.hops;
}

void leave(tree *self) {
    self->parent = 0;
    self->rest_until_ms = 0;
    self->offer_kind = OFFER_NONE;
    join_reset(self);
}

bool contradicts(const tree &self, const tree_node &parent) {
    return same_node(parent.root, self.id) || same_node(parent.parent, self.id) || parent.hops + 1 >= TREE_MAX_HOPS;
}

// Whoever is further from the root than this node may be below it: it would follow, and then look like a better parent
// again as soon as this node has come back to the one it left.
bool may_be_below(const tree &self, const tree_node &node) {
    return self.parent != 0 && node.root == self.root && node.hops > self.hops;
}

// Whether somebody can be joined, in any tree.
bool takes_in(const tree &self, const tree_node &node) {
    return node.known && !is_frozen(self, node) && (node.flags & NODE_BELOW_FROZEN) == 0 && !contradicts(self, node) &&
           upward_ports(self, node_mac(node.id)) != 0;
}

// A root that is none by its mode gives way to one that is. So it does to an extender that sits between two trees and
// is better than either root: neither tree could join the other through it.
bool should_be_root(const tree &self) {
    if (rank_of(self.id) < rank_of(self.root))
        return true;
    const std::span<const tree_node> nodes = used_nodes(self);
    return self.id < self.root && std::any_of(nodes.begin(), nodes.end(), [&self](const tree_node &node) {
               return node.id != 0 && node.root < self.root && takes_in(self, node);
           });
}

offer best_offer(tree *self, uint64_t *from) {
    const tree_node *parent = find_node(*self, self->parent);
    const tree_node *best = best_parent(self);
    *from = best == nullptr ? 0 : node_mac(best->id);
    if (best != nullptr && best->root < self->root)
        return OFFER_BETTER_ROOT;
    if (should_be_root(*self)) {
        *from = node_mac(self->id);
        return OFFER_OWN;
    }
    if (best != nullptr && best->root == self->root && is_better(*self, *best, *parent))
        return OFFER_SHORTER_WAY;
    return OFFER_NONE;
}

} // namespace

uint32_t upward_ports(const tree &self, uint64_t mac) {
    uint32_t all = 0;
    uint32_t meant = 0;
    for (size_t slot = 0; slot < self.port_slots; slot++) {
        const tree_port &port = self.ports[slot];
        if (mac == 0 || !leads_to(self, port, mac))
            continue;
        all |= uint32_t{1} << slot;
        if (rank_of(self.id) == NODE_RANK_ROOT || port.wish.group == PORT_NONRELAY)
            meant |= uint32_t{1} << slot;
    }
    return meant != 0 ? meant : all;
}

bool may_join(const tree &self, const tree_node &node) {
    return node.root < self.id && takes_in(self, node);
}

tree_node *best_parent(tree *self) {
    tree_node *best = nullptr;
    for (tree_node &node : used_nodes(self)) {
        if (node.id == 0 || self->now_ms < node.refused_until_ms || !may_join(*self, node))
            continue;
        if (may_be_below(*self, node))
            continue;
        if (best == nullptr || is_better(*self, node, *best))
            best = &node;
    }
    return best;
}

void parent_check(tree *self) {
    const tree_node *parent = self->parent == 0 ? nullptr : find_node(*self, self->parent);
    if (parent != nullptr && (upward_ports(*self, self->parent) == 0 || contradicts(*self, *parent)))
        parent = nullptr;
    if (parent == nullptr) {
        if (self->parent != 0)
            leave(self);
        self->root = self->id;
        self->hops = 0;
        self->flags = 0;
        return;
    }
    self->root = parent->root;
    self->hops = static_cast<uint8_t>(parent->hops + 1);
    const bool frozen = is_frozen(*self, *parent) || (parent->flags & NODE_BELOW_FROZEN) != 0;
    self->flags = frozen ? NODE_BELOW_FROZEN : 0;
}

void parent_compare(tree *self) {
    if (self->parent == 0)
        return;
    uint64_t from = 0;
    const offer kind = best_offer(self, &from);
    if (kind != self->offer_kind || from != self->offer_from) {
        self->offer_kind = kind;
        self->offer_from = from;
        self->offer_since_ms = self->now_ms;
    }
    const uint32_t patience = kind == OFFER_SHORTER_WAY ? self->timing.nearer : self->timing.better;
    if (kind == OFFER_NONE || self->now_ms - self->offer_since_ms < span_ms(*self, patience))
        return;
    leave(self);
    parent_check(self);
}

void parent_take(tree *self, uint64_t mac) {
    join_reset(self);
    self->parent = mac;
    self->offer_kind = OFFER_NONE;
    tree_node *node = find_node(self, mac);
    if (node != nullptr)
        node->refusals = 0;
}
