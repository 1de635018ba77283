#include "loop_avoidance/loop_avoidance.h"

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
bool needs_clean_up(const char *bridge, const char *ifname, config_interface **ports, uint32_t count) {
    if (kolt_name_equal(ifname, bridge))
        return true;
    for (uint32_t i = 0; i < count; i++) {
        const config_interface *port = ports[i];
        if (!kolt_name_equal(port->name, ifname) || kolt_check_eth_has_neigh(ifname) == 1)
            continue;
        if (port->type == KOLT_LINK_ETHERNET || port->relay != 1)
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
    config_interface *ports[CONFIG_MAX_INTERFACES];
    const uint32_t count = kolt_get_active_ports(config, bridge.text, ports);
    if (!needs_clean_up(bridge.text, ifname, ports, count))
        return;
    for (uint32_t i = 0; i < count; i++) {
        if (ports[i]->relay != 1 || !kolt_is_wifi_link(ports[i]->type))
            continue;
        char base[KOLT_NAME_SIZE];
        kolt_get_base_name(base, ports[i]->name);
        wlan_delete_wds_entry(base, payload);
    }
}
