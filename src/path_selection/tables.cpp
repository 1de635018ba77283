// Bridges are chosen by loop avoidance's flag, not path selection's: what loop avoidance programs anew is what is
// stale.
#include "path_selection/tables.h"

#include "core/log.h"
#include "core/names.h"
#include "probes/hd_table.h"
#include "probes/ports.h"
#include "probes/table_flush.h"

#include <duon_bridge.h>

namespace {

// Names the first nonrelay path port of each Wi-Fi type, by its first VLAN.
void path_selection_fill_hd_ifnames(config *config, const char *bridge, link_records *records) {
    kolt_port_list ports;
    (void)kolt_get_path_ports(config, bridge, &ports); // none after a failure, which it logs
    for (const config_interface *port : ports.span()) {
        if (!port->is_nonrelay() || !kolt_is_wifi_link(port->type) || (*records)[port->type].name[0] != '\0')
            continue;
        char base[KOLT_NAME_SIZE];
        kolt_get_base_name(base, port->name);
        (void)kolt_get_vlan_name((*records)[port->type].name, base, 1, 1);
    }
}

int refuse_table(const char * /*bridge*/) {
    return -1;
}

} // namespace

void path_selection_flush_table(config *config, kolt_table_kind table) {
    if (table == TABLE_HA)
        kolt_flush_tables(*config, bridgeFlushHATable, {__func__, __LINE__, "bridgeFlushHATable"});
    else if (table == TABLE_HD)
        kolt_flush_tables(*config, bridgeFlushHDTable, {__func__, __LINE__, "bridgeFlushHDTable"});
    else
        kolt_flush_tables(*config, refuse_table,
                          {__func__, __LINE__, "Unknown Table Type"}); // said for every such bridge
}

void path_selection_update_table(config *config, kolt_table_kind table,
                                 const std::array<uint32_t, KOLT_LINK_COUNT> & /*link_states*/, kolt_link_type link) {
    for (uint32_t i = 0; i < config->bridge_num; i++) {
        if (!kolt_is_loop_avoiding(config->bridges[i]))
            continue;
        const kolt_name_text bridge(config->bridges[i].name);
        link_records records;
        path_selection_fill_hd_ifnames(config, bridge.text, &records);
        if (table != TABLE_HD) {
            KOLT_ERROR("Unknown Table Type");
            continue;
        }
        if (kolt_update_hd_table(bridge.text, records, link) != 0)
            KOLT_DEBUG("update hd table OK");
    }
}
