// The programs and the bridge's flags of one port.
#include "bridged/guard.h"

#include "bridged/neighbours.h"
#include "bridged/refusal.h"
#include "bridged/saved_state.h"
#include "core/log.h"

#include <cerrno>
#include <cstring>

namespace {

constexpr bridge_port_flags SILENT = {
    .learning = false, .flood = false, .mcast_flood = false, .bcast_flood = false, .mcast_router = MCAST_ROUTER_NEVER};

// How the port is set in the bridge before we set it; what an earlier process found counts more.
void remember_found(bridge_node *node, node_port *port) {
    if (saved_port_read(node->owner, port))
        return;
    bridge_port described;
    if (bridge_port_get(node->owner->rtnl, port->ifindex, &described) == 0) {
        port->found = described.flags;
        saved_port_write(node->owner, *port);
    }
}

void tell_others(const node_port &port, const kolt_own_programs &own) {
    for (const kolt_direction direction : KOLT_DIRECTIONS) {
        kolt_other_program first;
        if (kolt_programs::others(port.ifindex, direction, &first, own) != 0)
            KOLT_INFO_AS("guard_port", "%s: another program sees what may pass: %s", port.name, first.name);
    }
}

bool put_programs_on(const bridge_node *node, const node_port &port) {
    kolt_reason why;
    kolt_programs &programs = node->owner->programs;
    if (!programs.attach(port.ifindex, &why) || !guard_identify(node, port)) {
        KOLT_ERROR_AS("guard_port", "%s: refused: %s", port.name, why.text);
        return false;
    }
    tell_others(port, programs.own());
    return true;
}

// One that is down opens by itself when it comes up.
bool open_again(bridged *self, const node_port &port) {
    const int error = bridge_port_set_forwarding(self->rtnl, port.ifindex, true);
    if (error == 0 || error == ENETDOWN)
        return true;
    KOLT_ERROR_AS("guard_port", "%s: the bridge does not open it again: %s", port.name,
                  self->rtnl.last_error().text.data());
    return false;
}

} // namespace

bool guard_identify(const bridge_node *node, const node_port &port) {
    kolt_port_identity identity{};
    for (unsigned i = 0; i < sizeof(identity.node); i++)
        identity.node[i] = static_cast<uint8_t>(node->links.id >> (8 * (sizeof(identity.node) - 1 - i)));
    memcpy(identity.mac, port.mac.data(), sizeof(identity.mac));
    identity.valid = 1;
    return node->owner->programs.set_identity(port.ifindex, &identity);
}

bool guard_port(bridge_node *node, node_port *port) {
    remember_found(node, port);
    const bool was_shut = port->shut;
    port->guarded = refusal_allows_port(node, *port) && put_programs_on(node, *port);
    port->shut = !port->guarded || (was_shut && !open_again(node->owner, *port));
    if (port->shut != was_shut)
        saved_port_write(node->owner, *port); // before it is shut: whoever dies in between is to be put back
    guard_keep_shut(node, *port);
    return !port->shut && neighbours_listen(port);
}

bool guard_stands(const bridge_node &node, const node_port &port) {
    bool both = false;
    kolt_reason ignored;
    return !node.owner->programs.find(port.ifindex, &both, &ignored) || both;
}

bool guard_stand_again(const bridge_node &node, const node_port &port) {
    kolt_reason why;
    const bool done = node.owner->programs.attach(port.ifindex, &why);
    KOLT_ERROR_AS("upkeep", "%s: somebody has taken the programs off it; %s", port.name,
                  done ? "they are on it again" : why.text);
    return done;
}

void guard_keep_shut(const bridge_node *node, const node_port &port) {
    if (!port.shut)
        return;
    rtnl_socket &rtnl = node->owner->rtnl;
    int error = bridge_port_set(rtnl, port.ifindex, SILENT);
    if (error == 0)
        error = bridge_port_set_forwarding(rtnl, port.ifindex, false);
    if (error != 0 && error != ENETDOWN && error != ENODEV)
        KOLT_ERROR("%s: the bridge does not close it: %s", port.name, rtnl.last_error().text.data());
}

void guard_end(const bridge_node *node, const node_port *port) {
    kolt_programs &programs = node->owner->programs;
    if (port->guarded || port->shut)
        (void)guard_take_off(node->owner, *port); // whoever starts or releases next finds what is left on it
    else
        (void)programs.set_identity(port->ifindex, nullptr);
    (void)programs.set_port(port->ifindex, {});
}

bool guard_take_off(bridged *self, const node_port &port) {
    kolt_reason why; // an interface that is gone has taken its programs along
    if (!self->programs.detach(port.ifindex, &why)) {
        KOLT_ERROR_AS("guard_end", "%s: %s", port.name, why.text);
        return false;
    }
    (void)self->programs.set_identity(port.ifindex, nullptr);
    saved_port_remove(self, port.name);
    return true;
}

void guard_rename(const bridge_node *node, node_port *port, const char *name) {
    if (!port->guarded && !port->shut)
        return;
    saved_port_remove(node->owner, port->name);
    kolt_copy_name(port->name, name);
    saved_port_write(node->owner, *port);
    port->guarded = port->shut = false; // nothing is taken off when it ends
}

// The flags before the programs: as long as these stand, a port that floods again is still kept by its word.
bool guard_put_back(bridged *self, const node_port *port) {
    if (!port->guarded && !port->shut)
        return true;
    const int error = bridge_port_set(self->rtnl, port->ifindex, port->found);
    if (error != 0)
        KOLT_ERROR_AS("ports_release", "%s: cannot put its flags back: %s", port->name,
                      self->rtnl.last_error().text.data());
    kolt_reason why;
    const bool detached = self->programs.detach(port->ifindex, &why);
    if (!detached)
        KOLT_ERROR_AS("ports_release", "%s: %s", port->name, why.text);
    const bool opened = !port->shut || open_again(self, *port);
    if (detached)
        (void)self->programs.set_identity(port->ifindex, nullptr);
    if (error == 0 && opened)
        saved_port_remove(self, port->name);
    return error == 0 && opened && detached;
}
