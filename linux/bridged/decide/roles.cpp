#include "decide/roles.h"

#include "decide/neighbours.h"
#include "decide/parent.h"

namespace {

struct place {
    port_role role = ROLE_CLOSED;
    uint8_t node = 0;
};

uint8_t index_of(const tree &self, const tree_node &node) {
    return static_cast<uint8_t>(&node - self.nodes.data());
}

place without_nodes(const tree &self, const tree_port &port) {
    if (port.wish.group == PORT_RELAY)
        return {.role = ROLE_ACCESS};
    const bool feeds = self.parent == 0 && port.wish.permit;
    return {.role = feeds ? ROLE_OUTSIDE : ROLE_CLOSED};
}

place place_of(const tree &self, size_t slot, uint32_t upward) {
    const tree_port &port = self.ports[slot];
    if (is_without_nodes(port))
        return without_nodes(self, port);
    if (!is_usable(self, port))
        return {};
    const port_neighbour *other = sole_neighbour(port);
    const tree_node *node = find_node(self, other->mac);
    if (node == nullptr || !node->known)
        return {};
    if ((upward >> slot & 1) != 0)
        return {.role = ROLE_UPLINK, .node = index_of(self, *node)};
    const bool is_child = same_node(node->parent, self.id) && other->mac != self.parent;
    if (is_child && (other->link_flags & LINK_UPWARD) != 0)
        return {.role = ROLE_DOWNLINK, .node = index_of(self, *node)};
    return {};
}

void choose_links(tree *self) {
    const port_role role = self->parent != 0 ? ROLE_UPLINK : ROLE_OUTSIDE;
    bundle links{};
    for (size_t slot = 0; slot < self->port_slots; slot++) {
        if (self->ports[slot].role == role)
            links[slot] = &self->ports[slot].wish;
    }
    for (unsigned c = 0; c < BCAST_CLASSES; c++) {
        const int chosen = bundle_choose(links, c, self->taking_slot[c]);
        self->taking_slot[c] = static_cast<int8_t>(chosen);
        const bool told = self->parent != 0 && chosen != NO_SLOT;
        self->taking[c] = told ? self->ports[static_cast<size_t>(chosen)].ifindex : 0;
    }
}

// The classes for which one of `taking` is the number.
template <class Numbers> uint8_t classes_of(const Numbers &taking, int64_t number) {
    uint8_t classes = 0;
    for (unsigned c = 0; c < BCAST_CLASSES; c++)
        classes = static_cast<uint8_t>(classes | (taking[c] == number ? 1 << c : 0));
    return classes;
}

uint8_t carried_at(const tree &self, size_t slot) {
    const tree_port &port = self.ports[slot];
    switch (port.role) {
    case ROLE_ACCESS:
        return classes_of(std::array<int, BCAST_CLASSES>{}, 0);
    case ROLE_OUTSIDE:
    case ROLE_UPLINK:
        return classes_of(self.taking_slot, static_cast<int64_t>(slot));
    case ROLE_DOWNLINK:
        return classes_of(self.nodes[port.node].taking, sole_neighbour(port)->port);
    case ROLE_CLOSED:
        break;
    }
    return 0;
}

} // namespace

bool roles_decide(tree *self) {
    const uint32_t upward = upward_ports(*self, self->parent);
    bool changed = false;
    for (size_t slot = 0; slot < self->port_slots; slot++) {
        tree_port &port = self->ports[slot];
        const place now = place_of(*self, slot, upward);
        changed |= now.role != port.role || now.node != port.node;
        port.role = now.role;
        port.node = now.node;
    }
    choose_links(self);
    for (size_t slot = 0; slot < self->port_slots; slot++) {
        const uint8_t carries = carried_at(*self, slot);
        changed |= carries != self->ports[slot].carries;
        self->ports[slot].carries = carries;
    }
    return changed;
}
