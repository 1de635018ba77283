// At most once a second, so that whoever sets a port again and again is answered at that pace.
#include "bridged/upkeep.h"

#include "bridged/guard.h"
#include "bridged/joining.h"
#include "bridged/settle.h"
#include "core/log.h"

namespace {

void keep_flags(bridge_node *node, node_port *port) {
    bridge_port described;
    port->touched = false;
    if (bridge_port_get(node->owner->rtnl, port->ifindex, &described) != 0 || settle_holds(*node, described))
        return;
    KOLT_ERROR_AS("upkeep", "%s: somebody has set what the bridge sends there; it is set back", port->name);
    settle_port_again(node, port->ifindex);
}

// One that is gone by now, or in another bridge, is about to be told.
void keep_programs(bridge_node *node, node_port *port) {
    link_info link;
    if (guard_stands(*node, *port) || link_get(node->owner->rtnl, port->ifindex, &link) != 0 ||
        link.master != node->ifindex || guard_stand_again(*node, *port))
        return;
    port_end_name(node, port, link.name.data());
    port_take_in(node, link);
    settle(node);
}

} // namespace

void upkeep_port_told(bridged *self, const bridge_port &described) {
    bridge_node *node = node_find_index(self, described.bridge);
    node_port *port = node == nullptr ? nullptr : node_find_port_index(node, described.index);
    if (port != nullptr && port->backhaul && !settle_holds(*node, described))
        port->touched = true;
}

void upkeep_second(bridged *self) {
    for (uint32_t i = 0; i < self->bridge_count; i++) {
        bridge_node *node = &self->bridges[i];
        for (node_port &port : node->ports) {
            if (port.ifindex != 0 && port.guarded && !port.shut)
                keep_programs(node, &port);
            if (port_waits(*node, port))
                port_try_again(node, &port);
            if (port.ifindex != 0 && port.backhaul && port.touched && !port.unset)
                keep_flags(node, &port);
        }
    }
}
