#include "decide/tree.h"

#include "decide/join.h"
#include "decide/neighbours.h"
#include "decide/parent.h"
#include "decide/roles.h"

#include <algorithm>

namespace {

// All that a hello says of the node itself.
struct said_state {
    node_id id = 0;
    node_id root = 0;
    uint64_t parent = 0;
    std::array<uint32_t, BCAST_CLASSES> taking{};
    uint8_t hops = 0;
    uint8_t flags = 0;
    bool operator==(const said_state &) const = default;
};

said_state state_of(const tree &self) {
    return {.id = self.id,
            .root = self.root,
            .parent = self.parent,
            .taking = self.taking,
            .hops = self.hops,
            .flags = self.flags};
}

void advance(tree *self, uint64_t now_ms) {
    self->now_ms = tree_time(*self, now_ms);
    self->slept_ms = std::max(self->slept_ms + self->now_ms, now_ms) - self->now_ms;
}

void say_to_all(tree *self) {
    for (tree_port &port : used_ports(self))
        port.hello_due |= port.carrier;
}

// Brings every decision up to date, `before` being what was last told to the neighbours.
void decide(tree *self, const said_state &before, bool beat) {
    for (tree_port &port : used_ports(self))
        age_port(*self, &port);
    forget_nodes(self);
    parent_check(self); // after which the parent is among the nodes
    parent_compare(self);
    join_pursue(self, beat);
    if (roles_decide(self))
        self->changes++;
    if (state_of(*self) != before) {
        self->version++;
        self->changes++;
        say_to_all(self);
    }
    for (tree_port &port : used_ports(self)) {
        const uint8_t flags = link_flags_of(*self, port);
        port.hello_due |= port.carrier && flags != port.said_flags;
        port.said_flags = flags;
    }
}

void decide(tree *self) {
    decide(self, state_of(*self), false);
}

tree_port *find_port(tree *self, uint32_t ifindex) {
    const int slot = tree_slot(*self, ifindex);
    return slot == NO_SLOT ? nullptr : &self->ports[static_cast<size_t>(slot)];
}

} // namespace

int tree_slot(const tree &self, uint32_t ifindex) {
    for (size_t slot = 0; slot < self.port_slots; slot++) {
        if (ifindex != 0 && self.ports[slot].ifindex == ifindex)
            return static_cast<int>(slot);
    }
    return NO_SLOT;
}

void tree_start(tree *self, node_id id, uint32_t incarnation, uint64_t seed, uint64_t now_ms) {
    const tree_timing timing = self->timing;
    *self = {};
    self->timing = timing;
    self->id = self->root = id;
    self->incarnation = incarnation;
    self->next_token = std::max<uint64_t>(seed, 1);
    self->now_ms = self->beat_ms = now_ms;
}

void tree_resume(tree *self) {
    decide(self);
}

void tree_set_rank(tree *self, node_rank rank, uint64_t now_ms) {
    advance(self, now_ms);
    const said_state before = state_of(*self);
    self->id = node_mac(self->id) | node_id{rank} << NODE_RANK_SHIFT;
    decide(self, before, false);
}

void tree_set_follow(tree *self, bool follow, uint64_t now_ms) {
    advance(self, now_ms);
    self->changes += self->follow != follow ? 1 : 0;
    self->follow = follow;
    decide(self);
}

bool tree_port_add(tree *self, uint32_t ifindex, const port_wish &wish, bool carrier, uint64_t now_ms) {
    if (tree_slot(*self, ifindex) != NO_SLOT) {
        tree_port_carrier(self, ifindex, carrier, now_ms);
        return true;
    }
    const auto free_port =
        std::find_if(self->ports.begin(), self->ports.end(), [](const tree_port &port) { return port.ifindex == 0; });
    if (ifindex == 0 || free_port == self->ports.end())
        return false;
    advance(self, now_ms);
    self->port_slots = std::max(self->port_slots, static_cast<size_t>(free_port - self->ports.begin()) + 1);
    *free_port = {};
    free_port->ifindex = ifindex;
    free_port->wish = wish;
    reset_port(*self, &*free_port, carrier);
    self->changes++;
    decide(self);
    return true;
}

void tree_port_remove(tree *self, uint32_t ifindex, uint64_t now_ms) {
    tree_port *port = find_port(self, ifindex);
    if (port == nullptr)
        return;
    advance(self, now_ms);
    outbox_forget(self, static_cast<size_t>(port - self->ports.data()));
    *port = {};
    self->changes++;
    decide(self);
}

void tree_port_carrier(tree *self, uint32_t ifindex, bool carrier, uint64_t now_ms) {
    tree_port *port = find_port(self, ifindex);
    if (port == nullptr || port->carrier == carrier)
        return;
    advance(self, now_ms);
    outbox_forget(self, static_cast<size_t>(port - self->ports.data()));
    reset_port(*self, port, carrier);
    decide(self);
}

void tree_port_wish(tree *self, uint32_t ifindex, const port_wish &wish, uint64_t now_ms) {
    tree_port *port = find_port(self, ifindex);
    if (port == nullptr || port->wish == wish)
        return;
    advance(self, now_ms);
    port->wish = wish;
    self->changes++;
    decide(self);
}

void tree_port_foreign(tree *self, uint32_t ifindex, uint32_t count, uint64_t now_ms) {
    tree_port *port = find_port(self, ifindex);
    if (port == nullptr)
        return;
    advance(self, now_ms);
    if (count_foreign(*self, port, count))
        decide(self);
}

void tree_port_heard(tree *self, uint32_t ifindex, uint64_t now_ms) {
    tree_port *port = find_port(self, ifindex);
    if (port == nullptr || !port->alive)
        return;
    advance(self, now_ms);
    const port_neighbour *other = sole_neighbour(*port);
    const tree_node *node = other == nullptr ? nullptr : find_node(*self, other->mac);
    // A node that decides nothing at present cannot say that it no longer hears this one.
    if (node != nullptr && !is_frozen(*self, *node) && (other->link_flags & LINK_ALIVE) != 0)
        port->echoed_ms = self->now_ms;
    decide(self);
}

void tree_receive(tree *self, uint32_t ifindex, const neighbour_frame &frame, uint64_t now_ms) {
    tree_port *port = find_port(self, ifindex);
    if (port == nullptr)
        return;
    advance(self, now_ms);
    const said_state before = state_of(*self);
    if (hear_frame(self, port, frame) && is_usable(*self, *port))
        join_receive(self, node_mac(frame.node), frame);
    decide(self, before, false);
}

void tree_tick(tree *self, uint64_t now_ms) {
    advance(self, now_ms);
    const bool beat = self->now_ms >= self->beat_ms;
    if (beat) {
        self->beat_ms = self->now_ms + self->timing.interval_ms;
        say_to_all(self);
        for (tree_port &port : used_ports(self))
            port.probe_due |= port.carrier;
    }
    decide(self, state_of(*self), beat);
}

uint64_t tree_next_ms(const tree &self) {
    uint64_t next = self.beat_ms;
    for (const tree_port &port : used_ports(self)) {
        const uint64_t dead_ms = port.echoed_ms + span_ms(self, self.timing.dead) + 1;
        const uint64_t quiet_ms = port.up_ms + span_ms(self, self.timing.quiet);
        if (port.alive)
            next = std::min(next, dead_ms);
        if (port.carrier && quiet_ms > self.now_ms)
            next = std::min(next, quiet_ms);
    }
    return next + self.slept_ms;
}

uint64_t tree_time(const tree &self, uint64_t now_ms) {
    const uint64_t awake_ms = std::max(now_ms, self.slept_ms) - self.slept_ms;
    return std::max(self.now_ms, std::min(awake_ms, self.beat_ms));
}

bool tree_is_child_port(const tree &self, uint32_t ifindex) {
    const int slot = tree_slot(self, ifindex);
    return slot != NO_SLOT && self.ports[static_cast<size_t>(slot)].role == ROLE_DOWNLINK;
}
