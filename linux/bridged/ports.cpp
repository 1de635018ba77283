// What the kernel tells of bridges and ports, and what it tells when it is asked.
#include "bridged/ports.h"

#include "bridged/bridges.h"
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

namespace {

constexpr int LOOK_AGAIN_MS = 1000;

std::span<bridge_node> nodes_of(bridged *self) {
    return {self->bridges.data(), self->bridge_count};
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
    bridges_tell(node->owner, BRIDGE_EVENT_PORT_LEFT);
}

void port_there(bridge_node *node, const link_info &link) {
    if (!belongs(node, link))
        return;
    node_port *port = node_find_port_index(node, link.index);
    if (port == nullptr) {
        port_take_in(node, link);
        bridges_tell(node->owner, BRIDGE_EVENT_PORT_JOINED);
    } else if (port->shut) {
        guard_keep_shut(node, *port);
    } else if (port->backhaul) {
        tree_port_carrier(&node->links, link.index, link_works(link), node_now());
        refusal_watch_port(port, link);
    }
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

void look_again_later(bridged *self) {
    self->watches.look.cb = look_again;
    (void)uloop_timeout_set(&self->watches.look, LOOK_AGAIN_MS);
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
        bridges_tell(node->owner, BRIDGE_EVENT_PORT_LEFT);
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
        look_again_later(self);
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

void ports_overrun(bridged *self) {
    for (bridge_node &node : nodes_of(self)) {
        for (node_port &port : node.ports)
            port.touched = port.ifindex != 0; // for all that is known
    }
    if (ports_look(self))
        look_again_later(self);
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
