#include "decide/neighbours.h"

#include <algorithm>

namespace {

constexpr uint8_t ECHOES_AFTER_DEATH = 3; // so that a bad link does not come and go with every frame

bool has_neighbours(const tree_port &port) {
    return std::any_of(port.neighbours.begin(), port.neighbours.end(),
                       [](const port_neighbour &one) { return one.mac != 0; });
}

bool is_silent(const tree &self, const port_neighbour &one, uint32_t intervals) {
    return self.now_ms - one.heard_ms > span_ms(self, intervals);
}

bool somebody_talks(const tree &self, const tree_port &port) {
    return std::any_of(port.neighbours.begin(), port.neighbours.end(), [&self](const port_neighbour &one) {
        return one.mac != 0 && !is_silent(self, one, self.timing.dead);
    });
}

// Whether its kolt-bridged was dead before the neighbour fell silent. Then nobody has closed the other end, and what
// comes in from there may be frames of hosts behind it.
bool fell_silent_frozen(const tree &self, const port_neighbour &one) {
    if (one.mac == node_mac(self.id))
        return false;
    const tree_node *node = find_node(self, one.mac);
    return node == nullptr || one.heard_ms > node->heard_ms + span_ms(self, self.timing.dead);
}

// The entry of the sender on the port, an old one of a port that it no longer has, or a new one; null when there is no
// room. An echo does not say from which port it came: 0.
port_neighbour *entry_of(const tree &self, tree_port *port, uint64_t mac, uint32_t number) {
    port_neighbour *place = nullptr;
    for (port_neighbour &one : port->neighbours) {
        if (one.mac == mac && (number == 0 || one.port == 0 || one.port == number))
            return &one;
        if (one.mac == mac && is_silent(self, one, self.timing.dead))
            place = &one;
        if (one.mac == 0 && place == nullptr)
            place = &one;
    }
    if (place == nullptr)
        return nullptr;
    *place = {.mac = mac};
    port->hello_due = true; // so that the newcomer need not wait for its turn
    port->probe_due = true;
    return place;
}

port_neighbour *hear(const tree &self, tree_port *port, uint64_t mac, uint32_t number) {
    port_neighbour *one = entry_of(self, port, mac, number);
    if (one == nullptr)
        return nullptr;
    one->heard_ms = self.now_ms;
    port->foreign_since_ms = port->foreign_ms = 0;
    if (number != 0)
        one->port = number;
    return one;
}

void hear_echo(const tree &self, tree_port *port, const neighbour_frame &frame) {
    const bool ours = same_node(frame.node, self.id) && frame.port == port->ifindex;
    const bool recent = frame.sequence - port->first_sequence <= port->sequence - port->first_sequence;
    if (!ours || !recent || port->sequence + 1 == port->first_sequence || node_mac(frame.echoed_by) == 0)
        return;
    (void)hear(self, port, node_mac(frame.echoed_by), 0); // without room the port is shared already
    const bool in_row = self.now_ms - port->echoed_ms <= span_ms(self, self.timing.dead);
    port->echoed_ms = self.now_ms;
    port->echoes = in_row ? std::min<uint8_t>(static_cast<uint8_t>(port->echoes + 1), ECHOES_AFTER_DEATH) : 1;
    port->alive = port->alive || !port->was_dead || port->echoes == ECHOES_AFTER_DEATH;
}

// The place of a node, a free one when it is new; null when there is none.
tree_node *place_of(tree *self, uint64_t mac) {
    tree_node *node = find_node(self, mac);
    if (node != nullptr)
        return node;
    const auto free_place =
        std::find_if(self->nodes.begin(), self->nodes.end(), [](const tree_node &one) { return one.id == 0; });
    if (free_place == self->nodes.end())
        return nullptr;
    self->node_places = std::max(self->node_places, static_cast<size_t>(free_place - self->nodes.begin()) + 1);
    *free_place = {};
    return &*free_place;
}

// False when the hello is of a life that the node has forgotten, and was only late.
bool enter_incarnation(tree_node *node, uint32_t incarnation) {
    if (node->known && node->incarnation != incarnation) {
        if (node->had_another && node->forgotten_incarnation == incarnation)
            return false;
        node->forgotten_incarnation = node->incarnation;
        node->had_another = true;
        node->known = false;
    }
    node->incarnation = incarnation;
    return true;
}

// What a node says is the same on all of its links, which are not equally fast: the latest holds.
bool hear_state(tree *self, const neighbour_frame &frame) {
    tree_node *node = place_of(self, node_mac(frame.node));
    if (node == nullptr)
        return false;
    node->refused_ms = self->now_ms;
    if (!enter_incarnation(node, frame.incarnation))
        return false;
    if (node->known && static_cast<int32_t>(frame.version - node->version) < 0)
        return true;
    node->refused_ms = 0;
    node->heard_ms = self->now_ms;
    if (node->root != frame.root)
        node->refusals = 0;
    node->known = true;
    node->id = frame.node;
    node->version = frame.version;
    node->root = frame.root;
    node->parent = frame.parent;
    node->taking = frame.taking;
    node->hops = frame.hops;
    node->flags = frame.node_flags;
    return true;
}

} // namespace

uint64_t span_ms(const tree &self, uint32_t intervals) {
    return uint64_t{intervals} * self.timing.interval_ms;
}

std::span<tree_port> used_ports(tree *self) {
    return std::span(self->ports).first(self->port_slots);
}

std::span<const tree_port> used_ports(const tree &self) {
    return std::span(self.ports).first(self.port_slots);
}

std::span<tree_node> used_nodes(tree *self) {
    return std::span(self->nodes).first(self->node_places);
}

std::span<const tree_node> used_nodes(const tree &self) {
    return std::span(self.nodes).first(self.node_places);
}

tree_node *find_node(tree *self, uint64_t mac) {
    for (tree_node &one : used_nodes(self)) {
        if (one.id != 0 && node_mac(one.id) == mac)
            return &one;
    }
    return nullptr;
}

const tree_node *find_node(const tree &self, uint64_t mac) {
    for (const tree_node &one : used_nodes(self)) {
        if (one.id != 0 && node_mac(one.id) == mac)
            return &one;
    }
    return nullptr;
}

bool is_frozen(const tree &self, const tree_node &node) {
    return self.now_ms - node.heard_ms > span_ms(self, self.timing.dead);
}

const port_neighbour *sole_neighbour(const tree_port &port) {
    const port_neighbour *sole = nullptr;
    for (const port_neighbour &one : port.neighbours) {
        if (one.mac == 0)
            continue;
        if (sole != nullptr)
            return nullptr;
        sole = &one;
    }
    return sole;
}

bool is_usable(const tree &self, const tree_port &port) {
    if (port.ifindex == 0 || !port.carrier || !port.alive)
        return false;
    const port_neighbour *other = sole_neighbour(port);
    return other != nullptr && other->said_hello && other->mac != node_mac(self.id) &&
           (other->link_flags & LINK_ALIVE) != 0 && (other->link_flags & LINK_SHARED) == 0;
}

bool leads_to(const tree &self, const tree_port &port, uint64_t mac) {
    return is_usable(self, port) && sole_neighbour(port)->mac == mac;
}

bool is_without_nodes(const tree_port &port) {
    return port.ifindex != 0 && port.carrier && port.quiet && !has_neighbours(port);
}

uint8_t link_flags_of(const tree &self, const tree_port &port) {
    if (port.ifindex == 0)
        return 0;
    const port_neighbour *sole = sole_neighbour(port);
    const bool own = sole != nullptr && sole->mac == node_mac(self.id);
    const bool shared = own || (sole == nullptr && has_neighbours(port));
    return static_cast<uint8_t>((port.alive ? LINK_ALIVE : 0) | (shared ? LINK_SHARED : 0) |
                                (port.role == ROLE_UPLINK ? LINK_UPWARD : 0));
}

bool hear_frame(tree *self, tree_port *port, const neighbour_frame &frame) {
    if (!port->carrier || node_mac(frame.node) == 0)
        return false;
    if (frame.kind == FRAME_ECHO) {
        hear_echo(*self, port, frame);
        return false;
    }
    port_neighbour *other = hear(*self, port, node_mac(frame.node), frame.port);
    if (other == nullptr || frame.kind != FRAME_HELLO || other->mac == node_mac(self->id) || !hear_state(self, frame))
        return false;
    other->said_hello = true;
    other->link_flags = frame.link_flags;
    return true;
}

bool count_foreign(const tree &self, tree_port *port, uint32_t count) {
    const bool more = port->foreign_counted && count != port->foreign;
    port->foreign = count;
    port->foreign_counted = true;
    // Those of an open link may still arrive when its end has just been closed.
    if (!more || somebody_talks(self, *port))
        return false;
    if (port->foreign_since_ms == 0 || self.now_ms - port->foreign_ms > span_ms(self, self.timing.pause))
        port->foreign_since_ms = self.now_ms;
    port->foreign_ms = self.now_ms;
    return true;
}

void age_port(const tree &self, tree_port *port) {
    if (port->ifindex == 0 || !port->carrier)
        return;
    if (port->alive && self.now_ms - port->echoed_ms > span_ms(self, self.timing.dead)) {
        port->alive = false;
        port->was_dead = true;
        port->echoes = 0;
    }
    const bool others_talk = somebody_talks(self, *port);
    const bool hosts_talk = port->foreign_ms - port->foreign_since_ms >= span_ms(self, self.timing.quiet);
    for (port_neighbour &one : port->neighbours) {
        if (one.mac == 0 || !is_silent(self, one, self.timing.memory))
            continue;
        if (others_talk || (hosts_talk && !fell_silent_frozen(self, one)))
            one = {};
    }
    if (!has_neighbours(*port) && self.now_ms - port->up_ms >= span_ms(self, self.timing.quiet))
        port->quiet = true;
}

void reset_port(const tree &self, tree_port *port, bool carrier) {
    tree_port fresh;
    fresh.ifindex = port->ifindex;
    fresh.wish = port->wish;
    fresh.carrier = fresh.hello_due = fresh.probe_due = carrier;
    fresh.role = port->role; // until it is decided anew
    fresh.node = port->node;
    fresh.sequence = port->sequence;
    fresh.first_sequence = port->sequence + 1;
    fresh.up_ms = self.now_ms;
    *port = fresh;
}

void forget_nodes(tree *self) {
    const std::span<const tree_port> ports = used_ports(*self);
    for (tree_node &node : used_nodes(self)) {
        if (node.id == 0)
            continue;
        const uint64_t mac = node_mac(node.id);
        const bool heard = std::any_of(ports.begin(), ports.end(), [mac](const tree_port &port) {
            return std::any_of(port.neighbours.begin(), port.neighbours.end(),
                               [mac](const port_neighbour &one) { return one.mac == mac; });
        });
        // All that it says is older than what was said in its name once: that was somebody else's frame, or a broken
        // one.
        const bool misheard =
            node.refused_ms != 0 && node.refused_ms - node.heard_ms > span_ms(*self, self->timing.memory);
        if (!heard || misheard)
            node = {};
    }
}
