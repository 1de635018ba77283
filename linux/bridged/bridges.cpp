// The bridge of a node with all that hangs on it.
#include "bridged/bridges.h"

#include "bridged/clients.h"
#include "bridged/guard.h"
#include "bridged/joining.h"
#include "bridged/refusal.h"
#include "bridged/saved_state.h"
#include "bridged/takeover.h"
#include "core/log.h"
#include "lib/records.h"

#include <sys/random.h>

namespace {

uint64_t random_number() {
    uint64_t number = 0;
    if (getrandom(&number, sizeof(number), 0) != sizeof(number))
        return node_now(); // two lives do not begin in the same millisecond
    return number;
}

void start_tree(bridge_node *node) {
    const node_rank rank = node->owner->mode == KOLT_MODE_RE ? NODE_RANK_EXTENDER : NODE_RANK_ROOT;
    if (saved_state_read(node, random_number())) {
        KOLT_INFO("%s: goes on as the process before left it", node->name);
        if (!node->owner->mode_goes_on) // it was another kind of node
            tree_set_rank(&node->links, rank, node_now());
        return;
    }
    const uint64_t random = random_number();
    tree_start(&node->links, make_node_id(rank, node->mac.data()), static_cast<uint32_t>(random >> 32), random,
               node_now());
}

// A bridge that comes back under the name is another one: nothing goes on there.
void let_go(bridge_node *node, void (*of_port)(bridge_node *node, node_port *port)) {
    clients_flush(node);
    for (node_port &port : node->ports) {
        if (port.ifindex == 0)
            continue;
        of_port(node, &port);
        bridges_tell(node->owner, BRIDGE_EVENT_PORT_LEFT);
    }
    saved_state_remove(node);
    node->ifindex = 0;
}

// It is that of another tree by now, which takes the same ports in.
void hand_on(bridge_node *node) {
    let_go(node, [](bridge_node *from, node_port *port) {
        char name[KOLT_NAME_SIZE];
        kolt_copy_name(name, port->name);
        port_end_name(from, port, name);
    });
}

// The node stays who it is. An address that the bridge does not have any more may be learnt nowhere.
void follow_address(bridge_node *node, const fdb_mac &mac) {
    if (mac == node->mac || mac == fdb_mac{})
        return;
    node->mac = mac;
    for (node_port &port : node->ports) {
        port.mac = mac;
        if (port.guarded)
            (void)guard_identify(node, port);
    }
}

} // namespace

void bridges_tell(bridged *self, uint16_t type) {
    if (self->requests != nullptr) // at the start nobody listens yet
        (void)requests_send_event(self->requests, PROTOCOL_BRIDGE_EVENTS, type, nullptr, 0);
}

void bridge_gone(bridge_node *node) {
    let_go(node, port_let_go);
}

void bridge_left(bridge_node *node, const link_info &link) {
    if (node->ifindex == 0 || node->ifindex != link.index)
        return;
    bridge_node *of_name = node_find(node->owner, link.name.data());
    if (link.deleted)
        bridge_gone(node);
    else if (of_name != nullptr && of_name != node && refusal_allows_bridge(of_name, link.index))
        hand_on(node);
}

void bridge_came(bridge_node *node, const link_info &link) {
    if (node->ifindex == link.index) {
        follow_address(node, link.mac);
        refusal_watch_bridge(node);
        return;
    }
    // One that was emptied has no address until a port joins, which is announced.
    if (link.mac == fdb_mac{} || !refusal_allows_bridge(node, link.index))
        return;
    if (node->ifindex != 0)
        bridge_gone(node);
    node->ifindex = link.index;
    node->mac = link.mac;
    node->unfit = nullptr;
    node->set = {};
    start_tree(node);
    takeover_begin(node);
    node->seen_parent = node->links.parent;
}

bool bridge_changed(bridge_node *node, const link_info &link) {
    const uint32_t before = node->ifindex;
    if (!link.deleted && link.is_bridge && kolt_name_equal(node->name, link.name.data()))
        bridge_came(node, link);
    return node->ifindex != before && node->ifindex != 0;
}
