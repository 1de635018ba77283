// What the kernel tells of bridges and ports, and what it tells when it is asked.
#include "bridged/ports.h"

#include "bridged/clients.h"
#include "bridged/guard.h"
#include "bridged/joining.h"
#include "bridged/leftovers.h"
#include "bridged/refusal.h"
#include "bridged/saved_state.h"
#include "bridged/settle.h"
#include "bridged/takeover.h"
#include "core/container_of.h"
#include "core/log.h"
#include "kernel/net/link_list.h"
#include "lib/records.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <sys/random.h>

namespace {

constexpr int LOOK_AGAIN_MS = 1000;

std::span<bridge_node> nodes_of(bridged *self) {
    return {self->bridges.data(), self->bridge_count};
}

uint64_t random_number() {
    uint64_t number = 0;
    if (getrandom(&number, sizeof(number), 0) != sizeof(number))
        return node_now(); // two lives do not begin in the same millisecond
    return number;
}

void start_tree(bridge_node *node) {
    if (saved_state_read(node, random_number())) {
        KOLT_INFO("%s: goes on as the process before left it", node->name);
        return;
    }
    const node_rank rank = node->owner->mode == KOLT_MODE_RE ? NODE_RANK_EXTENDER : NODE_RANK_ROOT;
    const uint64_t random = random_number();
    tree_start(&node->links, make_node_id(rank, node->mac.data()), static_cast<uint32_t>(random >> 32), random,
               node_now());
}

void tell_joined(bridged *self, uint16_t type) {
    if (self->requests != nullptr) // at the start nobody listens yet
        (void)requests_send_event(self->requests, PROTOCOL_BRIDGE_EVENTS, type, nullptr, 0);
}

// A bridge that comes back under the name is another one: nothing goes on there.
void bridge_gone(bridge_node *node, void (*let_go)(bridge_node *node, node_port *port) = port_let_go) {
    clients_flush(node);
    for (node_port &port : node->ports) {
        if (port.ifindex == 0)
            continue;
        let_go(node, &port);
        tell_joined(node->owner, BRIDGE_EVENT_PORT_LEFT);
    }
    saved_state_remove(node);
    node->ifindex = 0;
}

// It is that of another tree by now, which takes the same ports in.
void bridge_handed_on(bridge_node *node) {
    bridge_gone(node, [](bridge_node *from, node_port *port) {
        char name[KOLT_NAME_SIZE];
        kolt_copy_name(name, port->name);
        port_end_name(from, port, name);
    });
}

// Lets go of a bridge that is not there any more, or has the name of another of the configuration.
void bridge_left(bridge_node *node, const link_info &link) {
    if (node->ifindex == 0 || node->ifindex != link.index)
        return;
    const bridge_node *of_name = node_find(node->owner, link.name.data());
    if (link.deleted)
        bridge_gone(node);
    else if (of_name != nullptr && of_name != node)
        bridge_handed_on(node);
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

bool belongs(const bridge_node *node, const link_info &link) {
    return !link.deleted && node->ifindex != 0 && link.master == node->ifindex;
}

bool is_named(const node_port *port, const link_info &link) {
    return kolt_name_equal(port->name, link.name.data());
}

void port_left(bridge_node *node, const link_info &link) {
    node_port *port = node_find_port_index(node, link.index);
    const bool stays = belongs(node, link);
    if (port == nullptr || (stays && is_named(port, link)))
        return;
    if (stays)
        port_end_name(node, port, link.name.data());
    else
        port_let_go(node, port);
    tell_joined(node->owner, BRIDGE_EVENT_PORT_LEFT);
}

void port_there(bridge_node *node, const link_info &link) {
    if (!belongs(node, link))
        return;
    node_port *port = node_find_port_index(node, link.index);
    if (port == nullptr) {
        port_take_in(node, link);
        tell_joined(node->owner, BRIDGE_EVENT_PORT_JOINED);
    } else if (port->shut) {
        guard_keep_shut(node, *port);
    } else if (port->backhaul) {
        tree_port_carrier(&node->links, link.index, link_works(link), node_now());
        refusal_watch_port(port, link);
    }
}

// Whether the bridge is one that was not there before.
bool bridge_changed(bridge_node *node, const link_info &link) {
    const uint32_t before = node->ifindex;
    if (!link.deleted && link.is_bridge && kolt_name_equal(node->name, link.name.data()))
        bridge_came(node, link);
    return node->ifindex != before && node->ifindex != 0;
}

// Those of the kernel's interfaces that are `wanted`.
template <class Wanted> bool collect(bridged *self, link_list *found, Wanted wanted) {
    const int error = found->read(self->rtnl, wanted);
    if (error != 0)
        KOLT_ERROR_AS("ports_look", "cannot list the interfaces: %s", strerror(error));
    return error == 0;
}

bool look_bridges(bridged *self) {
    link_list found;
    const auto wanted = [self](const link_info &link) {
        return link.is_bridge &&
               (node_find(self, link.name.data()) != nullptr || node_find_index(self, link.index) != nullptr);
    };
    if (!collect(self, &found, wanted))
        return false;
    for (bridge_node &node : nodes_of(self)) {
        const auto is_its = [&node](const link_info &link) { return link.index == node.ifindex; };
        if (node.ifindex != 0 && std::none_of(found.all().begin(), found.all().end(), is_its))
            bridge_gone(&node);
        for (const link_info &link : found.all())
            bridge_left(&node, link);
    }
    for (const link_info &link : found.all()) {
        if (bridge_node *node = node_find(self, link.name.data()); node != nullptr)
            bridge_came(node, link);
    }
    return true;
}

void look_again(uloop_timeout *timer) {
    (void)ports_look(KOLT_CONTAINER_OF(timer, bridged_watches, look)->owner); // which has itself called again
}

bool has_port(const bridge_node &node, uint32_t ifindex, std::span<const link_info> links) {
    return std::any_of(links.begin(), links.end(),
                       [&](const link_info &link) { return link.index == ifindex && link.master == node.ifindex; });
}

void let_go_of_gone(bridge_node *node, std::span<const link_info> links) {
    for (node_port &port : node->ports) {
        if (port.ifindex == 0 || has_port(*node, port.ifindex, links))
            continue;
        port_let_go(node, &port);
        tell_joined(node->owner, BRIDGE_EVENT_PORT_LEFT);
    }
}

// A tree that goes on from its file may know ports that went meanwhile.
void forget_gone(bridge_node *node) {
    for (size_t slot = 0; slot < TREE_PORTS; slot++) {
        const uint32_t ifindex = node->links.ports[slot].ifindex;
        const node_port *port = node_find_port_index(node, ifindex);
        if (ifindex == 0 || (port != nullptr && port->backhaul))
            continue;
        tree_port_remove(&node->links, ifindex, node_now());
        if (port == nullptr)
            (void)node->owner->programs.set_port(ifindex, {});
    }
}

} // namespace

void ports_link_changed(bridged *self, const link_info &link) {
    const std::span<bridge_node> nodes = nodes_of(self);
    bool came = false;
    for (bridge_node &node : nodes)
        bridge_left(&node, link);
    for (bridge_node &node : nodes)
        came |= bridge_changed(&node, link);
    // One that could not be kept before, or had another name, has ports that are announced no more.
    if (came) {
        ports_look(self);
        return;
    }
    // Leaving comes first: a port may go from one of the bridges to another.
    for (bridge_node &node : nodes)
        port_left(&node, link);
    for (bridge_node &node : nodes)
        port_there(&node, link);
    for (bridge_node &node : nodes)
        settle(&node);
}

bool ports_look(bridged *self) {
    // The kernel can be asked nothing else in the middle of a dump. Bridges first: a port is known by its bridge's
    // index.
    link_list found;
    const auto is_port = [self](const link_info &link) {
        return link.master != 0 && node_find_index(self, link.master) != nullptr;
    };
    if (!look_bridges(self) || !collect(self, &found, is_port)) {
        self->watches.look.cb = look_again;
        (void)uloop_timeout_set(&self->watches.look, LOOK_AGAIN_MS);
        return false;
    }
    const std::span<bridge_node> nodes = nodes_of(self);
    for (bridge_node &node : nodes) {
        let_go_of_gone(&node, found.all());
        for (const link_info &link : found.all())
            port_left(&node, link); // or has another name
    }
    for (bridge_node &node : nodes) {
        for (const link_info &link : found.all())
            port_there(&node, link);
        forget_gone(&node);
        takeover_clients(&node);
        settle(&node);
    }
    takeover_finish(self);
    return true;
}

bool ports_release(bridged *self) {
    bool complete = true;
    for (uint32_t i = 0; i < self->bridge_count; i++) {
        bridge_node *node = &self->bridges[i];
        clients_flush(node);
        for (node_port &port : node->ports) {
            if (port.ifindex != 0)
                complete &= guard_put_back(self, &port);
        }
        saved_state_remove(node);
    }
    complete &= leftovers_give_back(self, LEFTOVERS_OF_ALL);
    if (complete)
        saved_state_remove_all(self);
    bus_forget(self->settings.run_folder);
    return complete;
}
