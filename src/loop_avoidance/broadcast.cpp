// The choice itself is a function of the ports and of what the links' states make of them.
#include "loop_avoidance/broadcast.h"

#include "core/log.h"
#include "core/names.h"
#include "probes/node_state.h"
#include "probes/ports.h"

#include <algorithm>
#include <duon_bridge.h>

config_interface *choose_bcast_port(port_span ports, uint8_t bcast_class, const bcast_preference &preference) {
    config_interface *chosen = nullptr;
    for (config_interface *port : ports.first(std::min<size_t>(ports.size(), CONFIG_MAX_INTERFACES))) {
        if (port->is_relay() || port->class_ != bcast_class)
            continue;
        if (chosen == nullptr || preference[port->type] > preference[chosen->type])
            chosen = port;
    }
    return chosen;
}

bcast_preference current_bcast_preference() {
    bcast_preference preference = {5, 4, 1, 2, 3};
    for (const kolt_link_type type : KOLT_LINKS) {
        if (kolt_check_link_state(type) != 1)
            preference[type] = -1;
    }
    if (preference[KOLT_LINK_PLC] > 0 && kolt_is_plc_bcast_capable() == 0)
        preference[KOLT_LINK_PLC] = 0;
    return preference;
}

config_interface *loop_avoidance_pick_bcast_nonrelay_port(port_span ports, uint8_t bcast_class) {
    if (ports.empty())
        return nullptr;
    config_interface *port = choose_bcast_port(ports, bcast_class, current_bcast_preference());
    if (port != nullptr)
        KOLT_DEBUG("Pick %.16s as broadcast nonrelay port!", port->name);
    return port;
}

bcast_ports pick_bcast_ports(port_span ports) {
    return {.class_0 = loop_avoidance_pick_bcast_nonrelay_port(ports, KOLT_BCAST_CLASS_0),
            .class_1 = loop_avoidance_pick_bcast_nonrelay_port(ports, KOLT_BCAST_CLASS_1)};
}

void loop_avoidance_set_bcast_port(config *config) {
    for (uint32_t i = 0; i < config->bridge_num; i++) {
        if (!kolt_is_loop_avoiding(config->bridges[i]))
            continue;
        const kolt_name_text bridge(config->bridges[i].name);
        kolt_port_list ports;
        (void)kolt_get_active_ports(config, bridge.text, &ports); // none after a failure, which it logs
        const bcast_ports chosen = pick_bcast_ports(ports.span());
        for (const config_interface *port : ports.span()) {
            if (bridgeSetIFBroadcast(bridge.text, kolt_name_text(port->name).text, chosen.allow(port) ? 1 : 0) != 0)
                KOLT_ERROR("bridgeSetIFBroadcast");
        }
    }
}
