// The programs and the bridge's flags of one port.
#include "bridged/guard.h"

#include "bridged/neighbours.h"
#include "bridged/refusal.h"
#include "bridged/saved_state.h"
#include "core/log.h"

#include <cstring>

namespace {

// How the port is set in the bridge before we set it; what an earlier process found counts more.
void remember_found(bridge_node *node, node_port *port) {
    if (saved_port_read(node, port->name, &port->found))
        return;
    bridge_port described;
    if (bridge_port_get(node->owner->rtnl, port->ifindex, &described) == 0) {
        port->found = described.flags;
        saved_port_write(node, *port);
    }
}

} // namespace

bool guard_port(bridge_node *node, node_port *port) {
    if (!refusal_allows_port(node, *port))
        return false;
    remember_found(node, port);
    kolt_port_identity identity{};
    for (unsigned i = 0; i < sizeof(identity.node); i++)
        identity.node[i] = static_cast<uint8_t>(node->links.id >> (8 * (sizeof(identity.node) - 1 - i)));
    memcpy(identity.mac, port->mac.data(), sizeof(identity.mac));
    identity.valid = 1;
    kolt_reason why;
    if (!node->owner->programs.set_identity(port->ifindex, &identity) ||
        !node->owner->programs.attach(port->ifindex, &why)) {
        KOLT_ERROR("%s: %s", port->name, why.text);
        return false;
    }
    port->guarded = true;
    return neighbours_listen(port);
}

void guard_end(const bridge_node *node, const node_port *port) {
    if (port->guarded) {
        kolt_reason why; // an interface that is gone has taken its programs along
        (void)node->owner->programs.detach(port->ifindex, &why);
        saved_port_remove(node, port->name);
    }
    (void)node->owner->programs.set_port(port->ifindex, {});
    (void)node->owner->programs.set_identity(port->ifindex, nullptr);
}

// The flags before the programs: as long as these stand, a port that floods again is still kept by its word.
bool guard_put_back(bridge_node *node, const node_port *port) {
    const int error = bridge_port_set(node->owner->rtnl, port->ifindex, port->found);
    if (error != 0)
        KOLT_ERROR_AS("ports_release", "%s: cannot put its flags back: %s", port->name,
                      node->owner->rtnl.last_error().text.data());
    kolt_reason why;
    const bool detached = node->owner->programs.detach(port->ifindex, &why);
    if (!detached)
        KOLT_ERROR_AS("ports_release", "%s: %s", port->name, why.text);
    if (error == 0)
        saved_port_remove(node, port->name);
    return error == 0 && detached;
}
