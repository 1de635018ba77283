#include "decide/record.h"

#include "decide/neighbours.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

static_assert(std::has_unique_object_representations_v<tree_record>); // its bytes are compared, and written to a file

namespace {

uint32_t checksum_of(const tree_record &record) {
    constexpr size_t BEGIN = offsetof(tree_record, checksum) + sizeof record.checksum;
    const auto *bytes = reinterpret_cast<const uint8_t *>(&record);
    uint32_t sum = 0x811c9dc5;
    for (size_t i = BEGIN; i < sizeof record; i++)
        sum = (sum ^ bytes[i]) * 0x01000193;
    return sum;
}

void save_port(const tree_port &port, saved_port *saved) {
    saved->ifindex = port.ifindex;
    saved->carrier = port.carrier ? 1 : 0;
    saved->alive = port.alive ? 1 : 0;
    saved->quiet = port.quiet ? 1 : 0;
    saved->type = port.wish.type;
    saved->class_ = port.wish.class_;
    saved->group = port.wish.group;
    saved->permit = port.wish.permit ? 1 : 0;
    saved->need_ha = port.wish.need_ha ? 1 : 0;
    for (size_t i = 0; i < PORT_NEIGHBOURS; i++) {
        const port_neighbour &one = port.neighbours[i];
        saved->neighbours[i] = {
            .mac = one.mac, .port = one.port, .link_flags = one.link_flags, .said_hello = one.said_hello, .zeros = {}};
    }
}

void resume_port(const saved_port &saved, uint64_t now_ms, tree_port *port) {
    if (saved.ifindex == 0)
        return;
    port->ifindex = saved.ifindex;
    port->carrier = saved.carrier != 0;
    port->alive = saved.alive != 0;
    port->was_dead = !port->alive;
    port->quiet = saved.quiet != 0;
    port->wish = {.type = saved.type,
                  .class_ = saved.class_,
                  .group = saved.group == PORT_NONRELAY ? PORT_NONRELAY : PORT_RELAY,
                  .permit = saved.permit != 0,
                  .need_ha = saved.need_ha != 0};
    port->hello_due = port->probe_due = port->carrier;
    port->first_sequence = port->sequence + 1;
    port->up_ms = port->echoed_ms = now_ms;
    for (size_t i = 0; i < PORT_NEIGHBOURS; i++) {
        const saved_neighbour &one = saved.neighbours[i];
        port->neighbours[i] = {.mac = one.mac,
                               .port = one.port,
                               .heard_ms = now_ms,
                               .said_hello = one.said_hello != 0,
                               .link_flags = one.link_flags};
    }
}

void save_node(const tree_node &node, saved_node *saved) {
    *saved = {.id = node.id,
              .root = node.root,
              .parent = node.parent,
              .incarnation = node.incarnation,
              .forgotten_incarnation = node.forgotten_incarnation,
              .version = node.version,
              .taking = node.taking,
              .hops = node.hops,
              .flags = node.flags,
              .known = uint8_t{node.known},
              .had_another = uint8_t{node.had_another}};
}

void resume_node(const saved_node &saved, uint64_t now_ms, tree_node *node) {
    node->id = saved.id;
    node->root = saved.root;
    node->parent = saved.parent;
    node->incarnation = saved.incarnation;
    node->forgotten_incarnation = saved.forgotten_incarnation;
    node->version = saved.version;
    node->taking = saved.taking;
    node->hops = saved.hops;
    node->flags = saved.flags;
    node->known = saved.known != 0;
    node->had_another = saved.had_another != 0;
    node->heard_ms = now_ms;
}

bool is_whole(const tree_record &record) {
    const bool slots = std::all_of(record.taking_slot.begin(), record.taking_slot.end(),
                                   [](int8_t slot) { return slot >= NO_SLOT && slot < static_cast<int>(TREE_PORTS); });
    return record.magic == TREE_RECORD_MAGIC && record.record_version == TREE_RECORD_VERSION &&
           record.size == sizeof record && record.checksum == checksum_of(record) && node_mac(record.id) != 0 && slots;
}

} // namespace

void tree_save(const tree &self, tree_record *record) {
    *record = {};
    record->magic = TREE_RECORD_MAGIC;
    record->record_version = TREE_RECORD_VERSION;
    record->size = sizeof *record;
    record->id = self.id;
    record->parent = self.parent;
    record->root = self.root;
    record->incarnation = self.incarnation;
    record->version = self.version;
    record->taking_slot = self.taking_slot;
    record->taking = self.taking;
    record->hops = self.hops;
    record->flags = self.flags;
    record->follow = self.follow ? 1 : 0;
    for (size_t i = 0; i < TREE_PORTS; i++)
        save_port(self.ports[i], &record->ports[i]);
    for (size_t i = 0; i < TREE_NODES; i++)
        save_node(self.nodes[i], &record->nodes[i]);
    record->checksum = checksum_of(*record);
}

bool tree_take_over(tree *self, const tree_record &record, uint64_t seed, uint64_t now_ms) {
    if (!is_whole(record))
        return false;
    tree_start(self, record.id, record.incarnation, seed, now_ms);
    self->version = record.version;
    self->follow = record.follow != 0;
    self->parent = record.parent;
    self->root = record.root;
    self->hops = record.hops;
    self->flags = record.flags;
    self->taking_slot = record.taking_slot;
    self->taking = record.taking;
    for (size_t i = 0; i < TREE_PORTS; i++)
        resume_port(record.ports[i], now_ms, &self->ports[i]);
    for (size_t i = 0; i < TREE_NODES; i++)
        resume_node(record.nodes[i], now_ms, &self->nodes[i]);
    self->port_slots = TREE_PORTS;
    self->node_places = TREE_NODES;
    while (self->port_slots > 0 && self->ports[self->port_slots - 1].ifindex == 0)
        self->port_slots--;
    while (self->node_places > 0 && self->nodes[self->node_places - 1].id == 0)
        self->node_places--;
    tree_resume(self);
    return true;
}
