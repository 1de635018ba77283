// A station that was learnt on another way is no longer behind this node's own WDS links.
#include "loop_avoidance/wds.h"

#include "adaptors/wlan.h"
#include "core/log.h"
#include "core/names.h"
#include "probes/ports.h"
#include "probes/uci_options.h"

#include <net/if.h>

namespace {

// Where a station event carries the interface index of the port on which the bridge learnt the station.
constexpr size_t IFINDEX_LOW = 6;
constexpr size_t IFINDEX_HIGH = 12;

// Whether a station that was learnt on `ifname` no longer is behind one of this node's own WDS links.
bool needs_clean_up(const char *bridge, const char *ifname, port_span ports) {
    if (kolt_name_equal(ifname, bridge))
        return true;
    for (const config_interface *port : ports) {
        if (!kolt_name_equal(port->name, ifname) || kolt_check_eth_has_neigh(ifname) == 1)
            continue;
        if (port->type == KOLT_LINK_ETHERNET || !port->is_relay())
            return true;
    }
    return false;
}

} // namespace

void loop_avoidance_delete_wds_entry(config *config, const uint8_t *payload) {
    if (config == nullptr || payload == nullptr)
        return;
    char ifname[IF_NAMESIZE] = {};
    if (if_indextoname(payload[IFINDEX_HIGH] * 256U + payload[IFINDEX_LOW], ifname) == nullptr)
        return;
    KOLT_DEBUG("update fdb from if: %s", ifname);
    if (config->bridge_num == 0)
        return;
    const kolt_name_text bridge(config->bridges[0].name);
    kolt_port_list ports;
    (void)kolt_get_active_ports(config, bridge.text, &ports); // none after a failure, which it logs
    if (!needs_clean_up(bridge.text, ifname, ports.span()))
        return;
    for (const config_interface *port : ports.span()) {
        if (!port->is_relay() || !kolt_is_wifi_link(port->type))
            continue;
        char base[KOLT_NAME_SIZE];
        kolt_get_base_name(base, port->name);
        wlan_delete_wds_entry(base, payload);
    }
}
