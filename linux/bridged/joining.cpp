// A backhaul port gets the programs before anything may pass it: until the tree has said so, they drop all but the
// neighbours' frames.
#include "bridged/joining.h"

#include "bridged/guard.h"
#include "bridged/neighbours.h"
#include "bridged/settle.h"
#include "core/log.h"

#include <algorithm>
#include <cstring>

namespace {

bool is_backhaul(const config_interface *interface) {
    return interface != nullptr && (interface->path != 0 || !interface->is_relay());
}

port_wish first_wish(const config_interface &interface) {
    return {.type = static_cast<uint8_t>(interface.type),
            .class_ = interface.class_,
            .group = interface.is_relay() ? PORT_RELAY : PORT_NONRELAY,
            .permit = interface.is_relay(),
            .need_ha = interface.needha != 0};
}

// A plan has only what changes of what this process has set; the one before may have left the port open.
void begin_closed(bridge_node *node, uint32_t ifindex) {
    port_settings now;
    port_words(node->links, &now);
    for (const port_setting &setting : now) {
        if (setting.ifindex == ifindex && (setting.word.flags & PORT_OPEN) == 0)
            settle_port(node, setting);
    }
}

// However many others there are: a link without a place would be left to flood.
node_port *make_place(bridge_node *node) {
    node_port *place = node_free_place(node);
    for (node_port &port : node->ports) {
        if (place != nullptr || node_configured(node->owner, port.name) != nullptr)
            continue;
        KOLT_ERROR_AS("take_in", "%s: too many ports, %s is left alone", node->name, port.name);
        port_let_go(node, &port);
        place = &port;
    }
    return place;
}

void make_link(bridge_node *node, node_port *port, const config_interface &interface, const link_info &link) {
    port->backhaul = tree_port_add(&node->links, port->ifindex, first_wish(interface), link_works(link), node_now());
    if (port->backhaul)
        begin_closed(node, port->ifindex);
}

} // namespace

void port_take_in(bridge_node *node, const link_info &link) {
    const config_interface *interface = node_configured(node->owner, link.name.data());
    node_port *port = interface != nullptr ? make_place(node) : node_free_place(node);
    if (port == nullptr) {
        KOLT_ERROR_AS("take_in", "%s: too many ports, %s is left alone", node->name, link.name.data());
        return;
    }
    *port = node_port{};
    port->ifindex = link.index;
    memcpy(port->name, link.name.data(), KOLT_NAME_SIZE);
    port->mac = node->mac;
    port->node = node;
    const bool guarded = is_backhaul(interface) && guard_port(node, port);
    if (guarded)
        make_link(node, port, *interface, link);
    if (guarded && !port->backhaul)
        KOLT_ERROR_AS("take_in", "%s: too many links, %s stays closed", node->name, port->name);
    if (!port->backhaul)
        (void)node->owner->programs.set_port(port->ifindex, {.class_ = node_class_of(interface)});
}

bool port_waits(const bridge_node &node, const node_port &port) {
    return port.ifindex != 0 && port.guarded && !port.shut && !port.backhaul &&
           std::any_of(node.links.ports.begin(), node.links.ports.end(),
                       [](const tree_port &link) { return link.ifindex == 0; });
}

void port_try_again(bridge_node *node, node_port *port) {
    const config_interface *interface = node_configured(node->owner, port->name);
    link_info link;
    if (interface == nullptr || link_get(node->owner->rtnl, port->ifindex, &link) != 0)
        return;
    make_link(node, port, *interface, link);
    settle(node);
}

void port_end_name(bridge_node *node, node_port *port, const char *name) {
    if (is_backhaul(node_configured(node->owner, name)))
        guard_rename(node, port, name);
    else
        (void)guard_put_back(node->owner, port);
    port_let_go(node, port);
}

void port_let_go(bridge_node *node, node_port *port) {
    if (port->backhaul)
        tree_port_remove(&node->links, port->ifindex, node_now());
    neighbours_forget(port);
    guard_end(node, port);
    port->ifindex = 0;
}
