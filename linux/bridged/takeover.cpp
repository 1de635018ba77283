// The programs' table is what counts: it is the first to change when a client is placed, and the programs themselves
// take out of it who has roamed. The bridge's entries are made to agree with it.
#include "bridged/takeover.h"

#include "bridged/clients.h"
#include "bridged/settle.h"
#include "core/log.h"

#include <algorithm>
#include <span>

namespace {

using hd_entries = std::array<kolt_hd_entry, KOLT_MAX_HD>;

std::span<const kolt_hd_entry> read_places(const bridged *self, hd_entries *entries) {
    return {entries->data(), std::min(entries->size(), self->programs.hd_read(*entries))};
}

bool is_open(const port_settings &settings, uint32_t ifindex) {
    return std::any_of(settings.begin(), settings.end(), [ifindex](const port_setting &port) {
        return port.ifindex == ifindex && (port.word.flags & PORT_OPEN) != 0;
    });
}

// From a port that is closed now, or gone, to the next best one.
void leave_closed(bridge_node *node) {
    for (const port_setting &port : node->left) {
        if (is_open(node->left, port.ifindex) && !is_open(node->set, port.ifindex))
            settle_move_off(node, node->left, port.ifindex);
    }
}

void take_back_places_of_nobody(bridged *self) {
    const std::span<bridge_node> nodes(self->bridges.data(), self->bridge_count);
    hd_entries entries;
    for (const kolt_hd_entry &entry : read_places(self, &entries)) {
        const auto has = [&](const bridge_node &node) { return clients_know(node, entry.mac.data()); };
        if (std::none_of(nodes.begin(), nodes.end(), has))
            (void)self->programs.hd_remove(entry.mac.data());
    }
}

// Nobody but this daemon pins MACs to backhaul ports.
void unpin_unplaced(bridge_node *node) {
    std::array<fdb_place, KOLT_MAX_HD> gone;
    size_t count = 0;
    const auto look = [&](const fdb_record &entry) {
        const node_port *port = entry.sticky ? node_find_port_index(node, entry.port) : nullptr;
        if (port != nullptr && (port->guarded || port->shut) && count < gone.size() &&
            node->owner->programs.hd_find(entry.mac.data()) == 0)
            gone[count++] = {entry.mac, entry.port};
    };
    if (fdb_dump(node->owner->rtnl, node->ifindex, look) != 0)
        KOLT_ERROR("%s: cannot read its table: %s", node->name, node->owner->rtnl.last_error().text.data());
    (void)fdb_remove(node->owner->rtnl, {gone.data(), count}); // one that is not there any more is fine
}

} // namespace

void takeover_begin(bridge_node *node) {
    port_words(node->links, &node->left); // no ports where nothing goes on
    node->came = true;
}

void takeover_clients(bridge_node *node) {
    if (!node->came)
        return;
    hd_entries entries;
    for (const kolt_hd_entry &entry : read_places(node->owner, &entries)) {
        if (is_open(node->left, entry.ifindex))
            clients_take_over(node, entry.mac.data(), entry.ifindex);
    }
}

void takeover_finish(bridged *self) {
    const std::span<bridge_node> nodes(self->bridges.data(), self->bridge_count);
    if (std::none_of(nodes.begin(), nodes.end(), [](const bridge_node &node) { return node.came; }))
        return;
    take_back_places_of_nobody(self);
    for (bridge_node &node : nodes) {
        if (!node.came)
            continue;
        node.came = false;
        leave_closed(&node);
        clients_pin(&node);
        if (!self->programs.made(KOLT_MAP_HD)) // what stands there at the very first start is the user's
            unpin_unplaced(&node);
    }
}
