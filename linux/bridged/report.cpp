// The first bridge of the configuration is the node's own network; its tree is what is told.
#include "bridged/report.h"

#include "bridged/runtime_files.h"

#include <cstring>

namespace {

void write_mac(node_id id, uint8_t *mac) {
    const uint64_t bits = node_mac(id);
    for (unsigned i = 0; i < KOLT_MAC_SIZE; i++)
        mac[i] = static_cast<uint8_t>(bits >> (8 * (KOLT_MAC_SIZE - 1 - i)));
}

// Interfaces that are Ethernet ports are numbered in the order of the configuration.
uint32_t ethernet_number(const config &configured, const char *name) {
    uint32_t number = 0;
    for (uint32_t i = 0; i < configured.interface_num; i++) {
        const config_interface &interface = configured.interfaces[i];
        if (kolt_name_equal(interface.name, name))
            return number;
        number += interface.type == KOLT_LINK_ETHERNET ? 1 : 0;
    }
    return number;
}

void add_uplink(const bridge_node &node, const tree_port &link, node_report *report) {
    const uint32_t type = link.wish.type;
    if (type >= KOLT_LINK_COUNT)
        return;
    link_report &told = report->links[type];
    told.up = true;
    told.to_root = node_mac(node.links.root) == node.links.parent;
    write_mac(node.links.parent, told.neighbour);
    report->root_has_plc |= type == KOLT_LINK_PLC && told.to_root;
    for (const node_port &port : node.ports) {
        if (type == KOLT_LINK_ETHERNET && port.ifindex == link.ifindex)
            memcpy(report->ethernet_uplink, port.name, KOLT_NAME_SIZE);
    }
}

void add_neighbour(const bridged *self, const bridge_node &node, const tree_port &link, node_report *report) {
    if (link.wish.type != KOLT_LINK_ETHERNET || (link.role != ROLE_UPLINK && link.role != ROLE_DOWNLINK))
        return;
    for (const node_port &port : node.ports) {
        const uint32_t number = ethernet_number(self->configured, port.name);
        if (port.ifindex == link.ifindex && number < 32)
            report->ethernet_neighbours |= 1U << number;
    }
}

node_report make_report(const bridged *self) {
    node_report report;
    report.mode = self->mode;
    if (self->bridge_count == 0)
        return report;
    const bridge_node &node = self->bridges[0];
    write_mac(node.links.root, report.root);
    write_mac(node.links.parent, report.parent);
    for (const tree_port &link : node.links.ports) {
        if (link.ifindex == 0)
            continue;
        if (link.role == ROLE_UPLINK)
            add_uplink(node, link, &report);
        add_neighbour(self, node, link, &report);
    }
    return report;
}

bool same_links(const node_report &a, const node_report &b) {
    for (kolt_link_type type : KOLT_LINKS) {
        if (a.links[type].up != b.links[type].up)
            return false;
    }
    return true;
}

} // namespace

void report_links(bridged *self) {
    if (self->settings.action == BRIDGED_RELEASE)
        return; // nobody is to follow what ends here
    const node_report now = make_report(self);
    const bool links_changed = !same_links(now, self->told);
    // Which Ethernet port leads up decides how kolt programs the others.
    const bool uplink_changed =
        !kolt_name_equal(now.ethernet_uplink, self->told.ethernet_uplink) || now.mode != self->told.mode;
    self->told = now;
    runtime_files_write(now, &self->reported, false);
    if (links_changed || uplink_changed)
        bus_tell(&self->bus, now, uplink_changed ? BUS_CONFIGURE | BUS_LINKS : BUS_LINKS);
}

void report_all(bridged *self) {
    const node_report now = make_report(self);
    self->told = now;
    runtime_files_write(now, &self->reported, true);
    bus_open(&self->bus, self->settings.run_folder);
    bus_tell(&self->bus, now, bus_has_told(self->bus, now) ? BUS_CONFIGURE : BUS_CONFIGURE | BUS_LINKS);
}
