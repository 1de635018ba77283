// kolt's calls become wishes of the tree, places of clients, targets of streams, and tables.
#include "bridged/calls.h"

#include "bridged/clients.h"
#include "bridged/report.h"
#include "bridged/saved_state.h"
#include "bridged/settle.h"
#include "bridged/steering.h"
#include "bridged/tables.h"
#include "core/log.h"

#include <cerrno>
#include <cstring>
#include <endian.h>
#include <netinet/in.h>

namespace {

bridge_node *present(void *context, const char *bridge) {
    bridge_node *node = node_find(static_cast<bridged *>(context), bridge);
    return node != nullptr && node->ifindex != 0 ? node : nullptr;
}

// A port's wish, changed by `change`; the kernel follows at once. What is wished of an access port changes nothing.
template <class Change> int wish(void *context, const char *bridge, const char *ifname, Change change) {
    bridge_node *node = present(context, bridge);
    const node_port *port = node == nullptr ? nullptr : node_find_port(node, ifname);
    if (port == nullptr)
        return ENODEV;
    const int slot = port->backhaul ? tree_slot(node->links, port->ifindex) : NO_SLOT;
    if (slot == NO_SLOT)
        return 0;
    port_wish wished = node->links.ports[static_cast<size_t>(slot)].wish;
    change(wished);
    tree_port_wish(&node->links, port->ifindex, wished, node_now());
    settle(node);
    return 0;
}

int set_bridge_mode(void *context, const char *bridge, int32_t mode) {
    bridge_node *node = present(context, bridge);
    if (node == nullptr)
        return ENODEV;
    bridged *self = node->owner;
    // 0 is an extender; which of the root's modes it is otherwise, only the settings know.
    if ((mode == 0) != (self->mode == KOLT_MODE_RE)) {
        self->mode = mode == 0 ? KOLT_MODE_RE : self->settings.mode == KOLT_MODE_HAP ? KOLT_MODE_HAP : KOLT_MODE_FAP;
        saved_mode_write(self);
    }
    tree_set_rank(&node->links, mode == 0 ? NODE_RANK_EXTENDER : NODE_RANK_ROOT, node_now());
    settle(node);
    report_links(self);
    return 0;
}

// Streams are spread by their entries alone, so there is nothing to switch.
int set_tcp_sp(void *context, const char *bridge, int32_t /*value*/) {
    return present(context, bridge) == nullptr ? ENODEV : 0;
}

int set_follow_re(void *context, const char *bridge, int32_t value) {
    bridge_node *node = present(context, bridge);
    if (node == nullptr)
        return ENODEV;
    tree_set_follow(&node->links, value != 0, node_now());
    settle(node);
    return 0;
}

int set_if_group(void *context, const char *bridge, const char *ifname, int32_t group, int32_t /*group_again*/) {
    return wish(context, bridge, ifname,
                [group](port_wish &port) { port.group = group != 0 ? PORT_RELAY : PORT_NONRELAY; });
}

int set_if_type(void *context, const char *bridge, const char *ifname, int32_t type) {
    return wish(context, bridge, ifname, [type](port_wish &port) { port.type = static_cast<uint8_t>(type); });
}

int set_if_class(void *context, const char *bridge, const char *ifname, int32_t bcast_class) {
    if (bcast_class < 0 || bcast_class >= static_cast<int32_t>(BCAST_CLASSES))
        return EINVAL;
    bridge_node *node = present(context, bridge);
    node_port *port = node == nullptr ? nullptr : node_find_port(node, ifname);
    if (port != nullptr && !port->backhaul)
        (void)node->owner->programs.set_port(port->ifindex, {.class_ = static_cast<uint8_t>(bcast_class)});
    return wish(context, bridge, ifname,
                [bcast_class](port_wish &link) { link.class_ = static_cast<uint8_t>(bcast_class); });
}

// Which ports are paths, and which of them stream alike, decides kolt alone; here it changes nothing.
int set_if_path(void *context, const char *bridge, const char *ifname, int32_t /*path*/) {
    return wish(context, bridge, ifname, [](port_wish &) {});
}
int set_if_compat(void *context, const char *bridge, const char *ifname, int32_t /*compat_group*/) {
    return wish(context, bridge, ifname, [](port_wish &) {});
}

int set_if_broadcast(void *context, const char *bridge, const char *ifname, int32_t allow) {
    return wish(context, bridge, ifname, [allow](port_wish &port) { port.permit = allow != 0; });
}

int set_needha(void *context, const char *bridge, const char *ifname, int32_t needha) {
    return wish(context, bridge, ifname, [needha](port_wish &port) { port.need_ha = needha != 0; });
}

// The two networks of a couple have bridges of their own here, and each bridge a tree of its own.
int set_couple(void *context, const char *bridge, const char * /*ifname*/, const char * /*couple*/, int32_t /*first*/) {
    return present(context, bridge) == nullptr ? ENODEV : 0;
}

int get_table(void *context, const char *bridge, bridge_table code, table_writer *table) {
    bridge_node *node = present(context, bridge);
    return node == nullptr ? ENODEV : tables_write(node, code, table);
}

int add_hd_entry(void *context, const char *bridge, const uint8_t *client_mac, const uint8_t *second_mac,
                 const char *ifname, const char * /*ifname_again*/) {
    bridge_node *node = present(context, bridge);
    return node == nullptr ? ENODEV : clients_add(node, client_mac, second_mac, ifname);
}

int delete_hd_entries(void *context, const char *bridge, const uint8_t *mac, const uint8_t * /*second_mac*/,
                      const char * /*ifname*/) {
    bridge_node *node = present(context, bridge);
    return node == nullptr ? ENODEV : clients_remove(node, mac);
}

int set_ha_entry(void *context, const char *bridge, const uint8_t *src_mac, const uint8_t *dst_mac,
                 const stream_key &stream, const char *ifname) {
    bridge_node *node = present(context, bridge);
    const node_port *port = node == nullptr ? nullptr : node_find_port(node, ifname);
    if (port == nullptr)
        return ENODEV;
    kolt_stream_key key{};
    memcpy(key.src, src_mac, sizeof(key.src));
    memcpy(key.dst, dst_mac, sizeof(key.dst));
    key.src_port = htobe16(stream.src_port);
    key.dst_port = htobe16(stream.dst_port);
    key.kind = stream.stream_kind == KOLT_STREAM_UDP ? KOLT_STREAM_UDP : KOLT_STREAM_TCP;
    key.hash = stream.hash;
    const auto slot = node->owner->streams.find(key);
    if (!slot)
        return ENOENT;
    const uint32_t group = steering_group(node, port->ifindex);
    if (group == GROUP_NONE || !steering_allowed(node, node->owner->streams.record(*slot).target, group))
        return EHOSTUNREACH; // its program would keep it where it is
    node->owner->streams.repoint(*slot, port->ifindex);
    return 0;
}

int flush_hd_table(void *context, const char *bridge) {
    bridge_node *node = present(context, bridge);
    if (node == nullptr)
        return ENODEV;
    clients_flush(node);
    return 0;
}

int flush_ha_table(void *context, const char *bridge) {
    bridge_node *node = present(context, bridge);
    if (node == nullptr)
        return ENODEV;
    (void)node->owner->streams.remove_all(node_now());
    return 0;
}

int flush_fdb(void *context, const char *bridge, const char *ifname) {
    bridge_node *node = present(context, bridge);
    const node_port *port = node == nullptr ? nullptr : node_find_port(node, ifname);
    return port == nullptr ? ENODEV : bridge_port_flush(node->owner->rtnl, port->ifindex);
}

// Whoever has a socket for events gets them; there is nothing to register for.
int set_event_info(void *context, const char *bridge, int32_t /*pid*/, int32_t /*events*/, int32_t /*protocol*/) {
    return present(context, bridge) == nullptr ? ENODEV : 0;
}

int check_bridge(void *context, const char *bridge) {
    return present(context, bridge) == nullptr ? ENODEV : 0;
}

int get_ports(void *context, const char *bridge, table_writer *table) {
    bridge_node *node = present(context, bridge);
    return node == nullptr ? ENODEV : tables_write_ports(node, table);
}

int get_ethernets(void *context, table_writer *table) {
    return tables_write_ethernets(static_cast<bridged *>(context), table);
}

int register_neighbours(void * /*context*/, int32_t /*pid*/) {
    return 0;
}

// kolt has moved a stream: the parent is told which, so that its answers come back by the same link.
int moved_stream(void *context, const moved_stream_record &moved) {
    auto *self = static_cast<bridged *>(context);
    stream_notice notice;
    memcpy(notice.src.data(), moved.src_mac, notice.src.size());
    memcpy(notice.dst.data(), moved.dst_mac, notice.dst.size());
    notice.src_port = moved.src_port;
    notice.dst_port = moved.dst_port;
    notice.protocol = static_cast<uint8_t>(moved.protocol);
    notice.type = moved.path;
    for (uint32_t i = 0; i < self->bridge_count; i++) {
        bridge_node *node = &self->bridges[i];
        if (node->ifindex != 0 && tree_tell_stream(&node->links, notice))
            settle(node);
    }
    return 0;
}

} // namespace

request_handlers calls_of(bridged *self) {
    return {.context = self,
            .set_bridge_mode = set_bridge_mode,
            .set_tcp_sp = set_tcp_sp,
            .set_follow_re = set_follow_re,
            .set_if_group = set_if_group,
            .set_if_type = set_if_type,
            .set_if_class = set_if_class,
            .set_if_path = set_if_path,
            .set_if_compat = set_if_compat,
            .set_if_broadcast = set_if_broadcast,
            .set_needha = set_needha,
            .set_couple = set_couple,
            .get_table = get_table,
            .add_hd_entry = add_hd_entry,
            .delete_hd_entries = delete_hd_entries,
            .set_ha_entry = set_ha_entry,
            .flush_hd_table = flush_hd_table,
            .flush_ha_table = flush_ha_table,
            .flush_fdb = flush_fdb,
            .set_event_info = set_event_info,
            .check_bridge = check_bridge,
            .get_ports = get_ports,
            .get_ethernets = get_ethernets,
            .event_socket_added = nullptr,
            .register_neighbours = register_neighbours,
            .moved_stream = moved_stream};
}
