#include "core/log.h"
#include "path_selection/path_selection.h"
#include "probes/bridge_tables.h"
#include "probes/ports.h"

#include <duon_bridge.h>

namespace {

using link_records = kolt_link_record[KOLT_LINK_COUNT];

// Names the first nonrelay path port of each Wi-Fi type, by its first VLAN.
void path_selection_fill_hd_ifnames(config *config, const char *bridge, link_records &records) {
    config_interface *ports[CONFIG_MAX_INTERFACES];
    const uint32_t count = kolt_get_path_ports(config, bridge, ports);
    for (uint32_t i = 0; i < count; i++) {
        if (ports[i]->relay != 0 || !kolt_is_wifi_link(ports[i]->type) || records[ports[i]->type].name[0] != '\0')
            continue;
        char base[KOLT_NAME_SIZE];
        kolt_get_base_name(base, ports[i]->name);
        (void)kolt_get_vlan_name(records[ports[i]->type].name, base, 1, 1);
    }
}

} // namespace

void path_selection_flush_table(config *config, uint32_t table) {
    for (uint32_t i = 0; i < config->bridge_num; i++) {
        // Loop avoidance's flag, not path selection's: every bridge that is steered at all is flushed.
        if (!kolt_is_loop_avoiding(config->bridges[i]))
            continue;
        const kolt_name_text bridge(config->bridges[i].name);
        if (table == TABLE_HA && bridgeFlushHATable(bridge.text) != 0)
            KOLT_ERROR("bridgeFlushHATable");
        if (table == TABLE_HD && bridgeFlushHDTable(bridge.text) != 0)
            KOLT_ERROR("bridgeFlushHDTable");
        if (table != TABLE_HA && table != TABLE_HD)
            KOLT_ERROR("Unknown Table Type");
    }
}

void path_selection_update_table(config *config, uint32_t table, const uint32_t * /*link_states*/, uint32_t link) {
    for (uint32_t i = 0; i < config->bridge_num; i++) {
        if (!kolt_is_loop_avoiding(config->bridges[i]))
            continue;
        const kolt_name_text bridge(config->bridges[i].name);
        link_records records;
        path_selection_fill_hd_ifnames(config, bridge.text, records);
        if (table != TABLE_HD) {
            KOLT_ERROR("Unknown Table Type");
            continue;
        }
        if (kolt_update_hd_table(bridge.text, records, link) != 0)
            KOLT_DEBUG("update hd table OK");
    }
}
