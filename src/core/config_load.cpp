// The configuration file: one JSON object, read once. The operation that the log names is config_load, whichever
// section is being read.
#include "core/config_load.h"

#include "core/config_entry.h"
#include "core/config_settings.h"
#include "core/json.h"
#include "core/json_file.h"
#include "core/log.h"

#include <algorithm>

namespace {

constexpr char LOADER[] = "config_load";

// What the getters tell; written by the one load.
config_kept kept;

void load_bridges(config *config, json_object *section) {
    std::fill_n(config->bridges, CONFIG_MAX_BRIDGES, config_bridge{});
    if (!json_object_is_type(section, json_type_object))
        return;
    json_object_object_foreach(section, name, value) {
        if (config->bridge_num == CONFIG_MAX_BRIDGES) {
            KOLT_INFO_AS(LOADER, "too many bridges");
            return;
        }
        config_read_bridge(&config->bridges[config->bridge_num], name, value);
        config->bridge_num++;
    }
}

void load_interfaces(config *config, json_object *section) {
    std::fill_n(config->interfaces, CONFIG_MAX_INTERFACES, config_interface{});
    if (!json_object_is_type(section, json_type_object))
        return;
    json_object_object_foreach(section, key, value) {
        if (config->interface_num == CONFIG_MAX_INTERFACES) {
            KOLT_INFO_AS(LOADER, "too many interfaces");
            return;
        }
        config_interface *port = &config->interfaces[config->interface_num];
        const config_entry entry = config_read_interface(config->param, port, key, value);
        if (entry == CONFIG_ENTRY_NO_LINK_TYPE)
            KOLT_FATAL_AS(LOADER, "invalid interface type");
        if (entry == CONFIG_ENTRY_KEPT)
            config->interface_num++;
    }
}

// Two lines for one thing: other programs look for each of them as it is.
void announce_couple(const config_couple &couple, json_object *value) {
    if (json_member(value, config_setting_of(CONFIG_COUPLE, "key_exchange").key) == nullptr)
        KOLT_INFO_AS(LOADER, "backhual lan:%.16s, guest:%.16s", couple.lan, couple.guest);
    else
        KOLT_INFO_AS(LOADER, "backhaul lan: %.16s, guest: %.16s", couple.lan, couple.guest);
}

void load_couples(config *config, json_object *section) {
    std::fill_n(config->couples, CONFIG_MAX_COUPLES, config_couple{});
    if (!json_object_is_type(section, json_type_object))
        return;
    json_object_object_foreach(section, key, value) {
        if (config->couple_num == CONFIG_MAX_COUPLES) {
            KOLT_INFO_AS(LOADER, "too many couple backhuals");
            return;
        }
        config_couple couple;
        if (config_read_couple(config->param, &couple, key, value) != CONFIG_ENTRY_KEPT)
            continue;
        announce_couple(couple, value);
        config->couples[config->couple_num++] = couple;
    }
}

} // namespace

void config_load(config *config, const char *path) {
    // "enable" must not be missing for any other reason than that the file lacks it.
    const json_ptr file = kolt_read_configuration(path);
    if (!file)
        KOLT_FATAL("parse config");
    config_load_tree(config, file.get());
}

void config_load_tree(config *config, json_object *file) {
    config->bridge_num = 0;
    config->interface_num = 0;
    config->enable = config_read_enable(file);
    if (json_object *section = json_member(file, "bridges"))
        load_bridges(config, section);
    if (json_object *section = json_member(file, "param"))
        config_read_param(&config->param, &kept, section);
    if (json_object *section = json_member(file, "interfaces"))
        load_interfaces(config, section);
    if (json_object *section = json_member(file, "backhual"))
        load_couples(config, section);
}

uint32_t config_get_timer_interval() {
    return kept.timer_interval;
}

uint8_t config_get_util_compensation() {
    return kept.util_compensation;
}
