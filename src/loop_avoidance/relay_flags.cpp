// The operation that the log names is the one that programs a bridge.
#include "loop_avoidance/relay_flags.h"

#include "core/log.h"
#include "probes/uci_options.h"

namespace {

constexpr char OPERATION[] = "loop_avoidance_configure_bridge_with_mode";

uint8_t plc_relay(kolt_work_mode mode) {
    return (mode == KOLT_MODE_HAP && plc_is_root() == 1) || mode == KOLT_MODE_FAP ? 1 : 0;
}

} // namespace

void loop_avoidance_set_relay_flags(port_span ports, kolt_work_mode mode) {
    for (config_interface *port : ports) {
        if (port->type == KOLT_LINK_PLC)
            port->relay = plc_relay(mode);
        if (port->type != KOLT_LINK_ETHERNET)
            continue;
        port->relay = 1;
        KOLT_DEBUG_AS(OPERATION, "name:%.16s, compat_group:%d, relay:%d", port->name, port->compat_group, port->relay);
    }
    if (mode == KOLT_MODE_RE && eth_traffic_is_active() == 1)
        (void)update_eth_traffic_ports(ports); // unread, the option leaves the flags as they are
}
