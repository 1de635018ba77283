#include "loop_avoidance/broadcast.h"

#include "core/log.h"
#include "loop_avoidance/loop_avoidance.h"
#include "core/names.h"
#include "probes/node_state.h"
#include "probes/ports.h"

#include <algorithm>
#include <duon_bridge.h>

config_interface *choose_bcast_port(config_interface **ports, uint32_t count, uint8_t bcast_class,
                                    const bcast_preference &preference) {
    config_interface *chosen = nullptr;
    for (uint32_t i = 0; i < std::min(count, CONFIG_MAX_INTERFACES); i++) {
        config_interface *port = ports[i];
        if (port->relay == 1 || port->class_ != bcast_class)
            continue;
        if (chosen == nullptr || preference[port->type] > preference[chosen->type])
            chosen = port;
    }
    return chosen;
}

bcast_preference current_bcast_preference() {
    bcast_preference preference = {5, 4, 1, 2, 3};
    for (uint32_t type = 0; type < KOLT_LINK_COUNT; type++) {
        if (kolt_check_link_state(type) != 1)
            preference[type] = -1;
    }
    if (preference[KOLT_LINK_PLC] > 0 && kolt_is_plc_bcast_capable() == 0)
        preference[KOLT_LINK_PLC] = 0;
    return preference;
}

config_interface *loop_avoidance_pick_bcast_nonrelay_port(config_interface **ports, uint32_t count,
                                                          uint8_t bcast_class) {
    if (ports == nullptr || count == 0)
        return nullptr;
    config_interface *port = choose_bcast_port(ports, count, bcast_class, current_bcast_preference());
    if (port != nullptr)
        KOLT_DEBUG("Pick %.16s as broadcast nonrelay port!", port->name);
    return port;
}

bcast_ports pick_bcast_ports(config_interface **ports, uint32_t count) {
    bcast_ports chosen;
    chosen.class_0 = loop_avoidance_pick_bcast_nonrelay_port(ports, count, 0);
    chosen.class_1 = loop_avoidance_pick_bcast_nonrelay_port(ports, count, 1);
    return chosen;
}

int bcast_allowed(const config_interface *port, const bcast_ports &chosen) {
    return port->relay == 1 || port == chosen.class_0 || port == chosen.class_1 ? 1 : 0;
}

void loop_avoidance_set_bcast_port(config *config) {
    for (uint32_t i = 0; i < config->bridge_num; i++) {
        if (!kolt_is_loop_avoiding(config->bridges[i]))
            continue;
        const kolt_name_text bridge(config->bridges[i].name);
        config_interface *ports[CONFIG_MAX_INTERFACES];
        const uint32_t count = kolt_get_active_ports(config, bridge.text, ports);
        const bcast_ports chosen = pick_bcast_ports(ports, count);
        for (uint32_t k = 0; k < count; k++) {
            const kolt_name_text port(ports[k]->name);
            if (bridgeSetIFBroadcast(bridge.text, port.text, bcast_allowed(ports[k], chosen)) != 0)
                KOLT_ERROR("bridgeSetIFBroadcast");
        }
    }
}
