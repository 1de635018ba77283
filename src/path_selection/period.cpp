#include "adaptors/wlan.h"
#include "path_selection/module_parts.h"
#include "path_selection/path_selection.h"
#include "probes/node_state.h"
#include "probes/ports.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char WAN_BRIDGE[] = "br-wan"; // never steered while the node extends another's network

constexpr uint8_t WIFI_CLASS_EXCLUDED = 1;

struct port_list {
    config_interface *ports[CONFIG_MAX_INTERFACES];
    uint8_t count = 0;

    void add(config_interface *port) {
        ports[count++] = port;
    }
    [[nodiscard]] kolt_interface_list list() {
        return {.count = count, .interfaces = ports};
    }
};

// The clients of one bridge, too many for the stack.
kolt_client client_records[KOLT_MAX_CLIENTS];
uint8_t used_records;

void clear_clients() {
    std::fill_n(client_records, used_records, kolt_client{});
    used_records = 0;
}

// Keeps the station links upwards measured.
void path_selection_activate_links(const config *config, const port_list &paths) {
    for (uint8_t i = 0; i < paths.count; i++) {
        const config_interface *port = paths.ports[i];
        if (port->relay != 0 || port->class_ == WIFI_CLASS_EXCLUDED || !kolt_is_wifi_link(port->type))
            continue;
        char base[KOLT_NAME_SIZE];
        kolt_get_base_name(base, port->name);
        wlan_activate_links(base, &config->param, port->type);
    }
}

// Keeps the stations of this node's own access points measured.
void path_selection_activate_links_for_ap(const config *config, const port_list &paths) {
    for (uint8_t i = 0; i < paths.count; i++) {
        const config_interface *port = paths.ports[i];
        if (port->class_ == WIFI_CLASS_EXCLUDED || (port->type != KOLT_LINK_2G && port->type != KOLT_LINK_5G))
            continue;
        kolt_name_text base(port->name);
        const size_t length = strlen(base.text);
        base.text[length > 2 ? length - 2 : 0] = '\0'; // less the VLAN's dot and digit
        wlan_activate_links_for_ap(base.text, &config->param, port->type);
    }
}

// One bridge's share of a period; false when no further bridge is to be visited.
bool visit_bridge(config *config, const config_bridge &bridge) {
    const kolt_name_text name(bridge.name);
    if (kolt_get_work_mode() == KOLT_MODE_RE && strcmp(name.text, WAN_BRIDGE) == 0)
        return true;
    if ((bridge.flags & CONFIG_PATH_SELECTION) == 0 || kolt_check_active_bridge(name.text) == 0)
        return true;

    port_list active;
    port_list paths;
    port_list nonrelay;
    active.count = static_cast<uint8_t>(kolt_get_active_ports(config, name.text, active.ports));
    for (uint8_t i = 0; i < active.count; i++) {
        if (active.ports[i]->path != 0)
            paths.add(active.ports[i]);
        if (active.ports[i]->relay != 1)
            nonrelay.add(active.ports[i]);
    }
    if (kolt_get_work_mode() != KOLT_MODE_RE) {
        path_selection_activate_links_for_ap(config, paths);
        return false;
    }
    clear_clients();
    const kolt_interface_list active_list = active.list();
    used_records = kolt_get_client_list(name.text, &active_list, client_records);
    kolt_client_list clients{.count = used_records, .clients = client_records};
    path_selection_activate_links(config, paths);
    const kolt_interface_list path_list = paths.list();
    const kolt_interface_list nonrelay_list = nonrelay.list();
    path_selection_update_uplink_paths(config, name.text, &path_list, &nonrelay_list, &clients);
    return true;
}

} // namespace

void path_selection_run_period(config *config) {
    for (uint32_t i = 0; i < config->bridge_num; i++) {
        if (!visit_bridge(config, config->bridges[i]))
            return;
    }
}
