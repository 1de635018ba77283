// A bridge's ports and clients are read here, for everything else to work on.
#include "path_selection/period.h"

#include "adaptors/wlan.h"
#include "core/interface_list.h"
#include "core/names.h"
#include "path_selection/uplink.h"
#include "probes/clients.h"
#include "probes/node_state.h"
#include "probes/ports.h"

#include <algorithm>
#include <cstring>

namespace {

// What all moves of a period may wait for the parent node's answers, which hold up every other source.
constexpr int64_t ANSWERS_MS = 2000;

constexpr char WAN_BRIDGE[] = "br-wan"; // never steered while the node extends another's network

// Reads the clients into records that are as good as new.
kolt_client_list read_clients(const char *bridge, kolt_port_list *active, ps_workspace *workspace) {
    std::fill_n(workspace->clients, workspace->used_clients, kolt_client{});
    const kolt_interface_list ports = active->list();
    workspace->used_clients = kolt_get_client_list(bridge, &ports, workspace->clients);
    return {.count = workspace->used_clients, .clients = workspace->clients};
}

// Keeps the station links upwards measured.
void path_selection_activate_links(const config_param &param, port_span paths) {
    for (const config_interface *port : paths) {
        if (!port->is_nonrelay() || port->class_ == KOLT_BCAST_CLASS_1 || !kolt_is_wifi_link(port->type))
            continue;
        char base[KOLT_NAME_SIZE];
        kolt_get_base_name(base, port->name);
        wlan_activate_links(base, &param, port->type);
    }
}

// Keeps the stations of this node's own access points measured.
void path_selection_activate_links_for_ap(const config_param &param, port_span paths) {
    for (const config_interface *port : paths) {
        if (port->class_ == KOLT_BCAST_CLASS_1 || (port->type != KOLT_LINK_2G && port->type != KOLT_LINK_5G))
            continue;
        kolt_name_text base(port->name);
        const size_t length = strlen(base.text);
        base.text[length > 2 ? length - 2 : 0] = '\0'; // less the VLAN's dot and digit
        wlan_activate_links_for_ap(base.text, &param, port->type);
    }
}

// The ports of one bridge, as a period looks at them; a port may be in several lists.
struct sorted_ports {
    kolt_port_list active;
    kolt_port_list paths;
    kolt_port_list nonrelay;
};

void read_ports(config *config, const char *bridge, sorted_ports *ports) {
    (void)kolt_get_active_ports(config, bridge, &ports->active); // none after a failure, which it logs
    for (config_interface *port : ports->active.span()) {
        if (port->path != 0)
            ports->paths.add(port);
        if (!port->is_relay())
            ports->nonrelay.add(port);
    }
}

// One bridge's share of a period; false when no further bridge is to be visited.
bool visit_bridge(config *config, const config_bridge &bridge, ps_workspace *workspace, kolt_wait_budget *budget) {
    const kolt_name_text name(bridge.name);
    if (kolt_get_work_mode() == KOLT_MODE_RE && strcmp(name.text, WAN_BRIDGE) == 0)
        return true;
    if ((bridge.flags & CONFIG_PATH_SELECTION) == 0 || kolt_check_active_bridge(name.text) == 0)
        return true;
    sorted_ports ports;
    read_ports(config, name.text, &ports);
    if (kolt_get_work_mode() != KOLT_MODE_RE) {
        path_selection_activate_links_for_ap(config->param, ports.paths.span());
        return false;
    }
    kolt_client_list clients = read_clients(name.text, &ports.active, workspace);
    path_selection_activate_links(config->param, ports.paths.span());
    const kolt_interface_list paths = ports.paths.list();
    const kolt_interface_list nonrelay = ports.nonrelay.list();
    path_selection_update_uplink_paths(config, name.text, &paths, &nonrelay, &clients, &workspace->ranking, budget);
    return true;
}

} // namespace

void path_selection_run_period(config *config, ps_workspace *workspace) {
    kolt_wait_budget budget{.left_ms = ANSWERS_MS};
    for (uint32_t i = 0; i < config->bridge_num; i++) {
        if (!visit_bridge(config, config->bridges[i], workspace, &budget))
            return;
    }
}
