// Look-ups in the configuration record.
#include "core/config.h"

#include "core/log.h"
#include "core/names.h"

#include <cstring>
#include <net/if.h>

void config_free(config *config) {
    config->bridge_num = 0;
    config->interface_num = 0;
}

void config_dump(const config *config) {
    KOLT_DEBUG("Bridges:");
    for (uint32_t i = 0; i < config->bridge_num; i++) {
        const config_bridge &bridge = config->bridges[i];
        KOLT_DEBUG("%.16s ==> flags: %d, loop_avoidance: %d, path_selection: %d", bridge.name,
                   static_cast<int>(bridge.flags), (bridge.flags & CONFIG_LOOP_AVOIDANCE) != 0,
                   (bridge.flags & CONFIG_PATH_SELECTION) != 0);
    }
    KOLT_DEBUG("Interfaces:");
    for (uint32_t i = 0; i < config->interface_num; i++) {
        const config_interface &port = config->interfaces[i];
        KOLT_DEBUG("%.16s ==> type: %d, compat_group: %d, relay: %d", port.name, static_cast<int>(port.type),
                   port.compat_group, port.relay);
    }
    KOLT_DEBUG("Param:");
    KOLT_DEBUG("\tperiod: %d, low_threhold: %d", static_cast<int>(config->param.period), config->param.low_threshold);
}

config_interface *config_find_interface_by_name(config *config, const char *name) {
    for (uint32_t i = 0; i < config->interface_num; i++) {
        config_interface *port = &config->interfaces[i];
        if (strcmp(kolt_name_text(port->name).text, name) == 0)
            return port;
    }
    return nullptr;
}

config_interface *config_find_interface_by_index(config *config, uint32_t ifindex) {
    char name[IF_NAMESIZE] = {};
    if (if_indextoname(ifindex, name) == nullptr) {
        KOLT_ERROR("if_indextoname");
        return nullptr;
    }
    return config_find_interface_by_name(config, name);
}

int config_index_to_name(uint32_t ifindex, char *name) {
    return if_indextoname(ifindex, name) != nullptr ? 1 : 0;
}
