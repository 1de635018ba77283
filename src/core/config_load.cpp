// The configuration file: one JSON object, read once. The operation that the log names is config_load, whichever
// section is being read.
#include "core/config_load.h"

#include "core/json_file.h"
#include "core/log.h"
#include "core/names.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char LOADER[] = "config_load";

// How an interface's name is derived when it carries an "exchange" value.
enum exchange : int32_t {
    EXCHANGE_IPTV = 2,
    EXCHANGE_IPTV_BACKHAUL = 3,
    EXCHANGE_PLC_BACKHAUL = 4,
    EXCHANGE_PLC_GUEST = 5,
    EXCHANGE_PLC_IPTV = 6,
};

// The two parameters that have getters of their own instead of a place in the record; written by the one load.
struct {
    uint32_t timer_interval = 0; // seconds
    uint8_t util_compensation = 0;
} kept;

int32_t integer_or(json_object *section, const char *key, int32_t fallback) {
    json_object *value = json_member(section, key);
    return value ? json_object_get_int(value) : fallback;
}

uint8_t flag_or(json_object *section, const char *key, bool fallback) {
    json_object *value = json_member(section, key);
    return (value ? json_object_get_boolean(value) != 0 : fallback) ? 1 : 0;
}

int32_t clamped_or(json_object *section, const char *key, int32_t fallback, int32_t highest) {
    return std::clamp(integer_or(section, key, fallback), 0, highest);
}

uint8_t percent_or(json_object *section, const char *key, int32_t fallback) {
    return static_cast<uint8_t>(clamped_or(section, key, fallback, 100));
}

int32_t vlan_id(json_object *section, const char *key) {
    return clamped_or(section, key, 0, 4094);
}

void load_bridge(config_bridge *bridge, const char *name, json_object *value) {
    kolt_copy_name(bridge->name, name);
    if (flag_or(value, "loop_avoidance", false) != 0)
        bridge->flags |= CONFIG_LOOP_AVOIDANCE;
    if (flag_or(value, "path_selection", false) != 0)
        bridge->flags |= CONFIG_PATH_SELECTION;
}

void load_bridges(config *config, json_object *section) {
    std::fill_n(config->bridges, CONFIG_MAX_BRIDGES, config_bridge{});
    if (!json_object_is_type(section, json_type_object))
        return;
    json_object_object_foreach(section, name, value) {
        if (config->bridge_num == CONFIG_MAX_BRIDGES) {
            KOLT_INFO_AS(LOADER, "too many bridges");
            return;
        }
        load_bridge(&config->bridges[config->bridge_num], name, value);
        config->bridge_num++;
    }
}

// The parameters are read in the order in which the record has them.
void load_measuring(config_param *param, json_object *section) {
    param->period = static_cast<uint32_t>(integer_or(section, "period", 0)) * 1000U;
    kept.timer_interval = param->period / 1000U;
    param->high_threshold = percent_or(section, "high_threshold", 70);
    param->delta_threshold = percent_or(section, "delta_threshold", 10);
    param->reserved_ratio = percent_or(section, "reserved_ratio", 0);
    param->idle_threshold = static_cast<uint16_t>(clamped_or(section, "idle_threshold", 10, 1000));
    param->activate_pkts = static_cast<uint16_t>(clamped_or(section, "activate_pkts", 1, 1000));
    param->wlan_enable = flag_or(section, "wlan_enable", false);
    param->plc_enable = flag_or(section, "plc_enable", false);
}

void load_adjusting(config_param *param, json_object *section) {
    param->plc_rate_ratio = static_cast<uint8_t>(integer_or(section, "plc_rate_ratio", 100));
    // 256..1000 pass the clamp and wrap in the 8-bit field; deployed files count on the value that results.
    param->adjusted_streams = static_cast<uint8_t>(clamped_or(section, "adjusted_streams", 1, 1000));
    param->adjusted_ratio = percent_or(section, "adjusted_ratio", 50);
    param->estimate_ack_enable = flag_or(section, "estimate_ack_enable", false);
    param->cpu_threshold = static_cast<uint8_t>(integer_or(section, "cpu_threshold", 0));
    param->abn_threshold = static_cast<uint8_t>(integer_or(section, "abn_threshold", 0));
}

void load_backhaul(config_param *param, json_object *section) {
    param->eth_vlan_id = vlan_id(section, "eth_vlan_id");
    param->iptv_vlan_id = vlan_id(section, "iptv_vlan_id");
    param->iptv_vlan_backhaul_id = vlan_id(section, "iptv_vlan_backhaul_id");
    param->cpu_limit = flag_or(section, "cpu_limit", false);
    param->backhual_prefered = static_cast<uint8_t>(clamped_or(section, "backhual_prefered", 0, 4));
    param->rate_threshold = static_cast<uint16_t>(integer_or(section, "rate_threshold", 0));
    param->wifi_rate_check = flag_or(section, "wifi_rate_check", true);
    param->rate_abnormal_threshold = static_cast<uint16_t>(integer_or(section, "rate_abnormal_threshold", 13));
    param->plc_vlan_backhaul_id = vlan_id(section, "plc_vlan_backhaul_id");
    param->plc_vlan_guest_id = vlan_id(section, "plc_vlan_guest_id");
    param->plc_vlan_iptv_id = vlan_id(section, "plc_vlan_iptv_id");
    kept.util_compensation = flag_or(section, "util_compensation", false);
}

void load_param(config_param *param, json_object *section) {
    *param = config_param{};
    load_measuring(param, section);
    load_adjusting(param, section);
    load_backhaul(param, section);
}

// `text` without its last character, as far as it fits a name field: the stem of an exchanged name.
void copy_stem(char *stem, const char *text) {
    size_t length = strlen(text);
    memset(stem, 0, KOLT_NAME_SIZE);
    if (length > 0)
        memcpy(stem, text, std::min(length - 1, KOLT_NAME_SIZE));
}

// Writes `text` with its last character replaced by `id`; it cannot fail.
void write_exchanged_name(char *name, const char *text, int32_t id) {
    char stem[KOLT_NAME_SIZE];
    copy_stem(stem, text);
    (void)kolt_get_vlan_name(name, stem, static_cast<uint32_t>(id), 0);
}

int32_t exchange_vlan_id(const config_param &param, int32_t exchange) {
    switch (exchange) {
    case EXCHANGE_IPTV:
        return param.iptv_vlan_id;
    case EXCHANGE_IPTV_BACKHAUL:
        return param.iptv_vlan_backhaul_id;
    case EXCHANGE_PLC_BACKHAUL:
        return param.plc_vlan_backhaul_id;
    case EXCHANGE_PLC_GUEST:
        return param.plc_vlan_guest_id;
    case EXCHANGE_PLC_IPTV:
        return param.plc_vlan_iptv_id;
    default:
        return param.eth_vlan_id;
    }
}

// Writes the kernel name of the interface keyed `key`; false when the VLAN that its name needs is not configured.
bool load_interface_name(const config_param &param, char *name, const char *key, json_object *value) {
    json_object *exchange = json_member(value, "exchange");
    if (exchange == nullptr) {
        kolt_copy_name(name, key);
        return true;
    }
    int32_t id = exchange_vlan_id(param, json_object_get_int(exchange));
    if (id == 0)
        return false;
    write_exchanged_name(name, key, id);
    return true;
}

kolt_link_type link_type_from_string(const char *text) {
    constexpr const char *NAMES[KOLT_LINK_COUNT] = {"ethernet", "plc", "2.4g", "5g", "5g_2"};
    for (const kolt_link_type type : KOLT_LINKS) {
        if (text != nullptr && strcmp(text, NAMES[type]) == 0)
            return type;
    }
    return KOLT_LINK_NONE;
}

// Fills one interface; false when it is to be left out.
bool load_interface(const config_param &param, config_interface *port, const char *key, json_object *value) {
    if (!load_interface_name(param, port->name, key, value))
        return false;
    port->type = link_type_from_string(json_member_text(value, "type"));
    if (port->type == KOLT_LINK_NONE)
        KOLT_FATAL_AS(LOADER, "invalid interface type");
    port->compat_group = static_cast<uint8_t>(integer_or(value, "compat_group", 255));
    // The value is cut to 8 bits before it is clamped, so -1 counts as 255 and becomes 10.
    port->priority = std::min<uint8_t>(static_cast<uint8_t>(integer_or(value, "priority", 0)), 10);
    port->relay = flag_or(value, "nonrelay", false) != 0 ? 0 : 1;
    port->path = flag_or(value, "path", false);
    port->class_ = static_cast<uint8_t>(integer_or(value, "class", 0));
    port->needha = flag_or(value, "needha", false);
    port->ssdp_allow = flag_or(value, "ssdp_allow", false);
    port->ctl_iface = flag_or(value, "ctl_iface", false);
    return true;
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
        if (load_interface(config->param, &config->interfaces[config->interface_num], key, value))
            config->interface_num++;
    }
}

// Writes the partner's name; false when the VLAN that its name needs is not configured.
bool load_couple_guest(const config_param &param, char *guest, const char *text, json_object *value) {
    json_object *exchange = json_member(value, "exchange");
    if (exchange == nullptr) {
        kolt_copy_name(guest, text);
        return true;
    }
    int32_t id = json_object_get_int(exchange) == EXCHANGE_PLC_GUEST ? param.plc_vlan_guest_id : param.eth_vlan_id;
    if (id == 0)
        return false;
    write_exchanged_name(guest, text, id);
    return true;
}

// Fills one couple and announces it; false when it is to be left out.
bool load_couple(const config_param &param, config_couple *couple, const char *key, json_object *value) {
    const char *text = json_member_text(value, "couple");
    if (text == nullptr || !load_couple_guest(param, couple->guest, text, value))
        return false;
    json_object *key_exchange = json_member(value, "key_exchange");
    if (key_exchange == nullptr) {
        kolt_copy_name(couple->lan, key);
        KOLT_INFO_AS(LOADER, "backhual lan:%.16s, guest:%.16s", couple->lan, couple->guest);
        return true;
    }
    if (json_object_get_int(key_exchange) != EXCHANGE_PLC_BACKHAUL || param.plc_vlan_backhaul_id == 0)
        return false;
    // Built from the partner's name, not from the key: the two names of such a couple differ in the VLAN id alone.
    write_exchanged_name(couple->lan, text, param.plc_vlan_backhaul_id);
    KOLT_INFO_AS(LOADER, "backhaul lan: %.16s, guest: %.16s", couple->lan, couple->guest);
    return true;
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
        if (load_couple(config->param, &couple, key, value))
            config->couples[config->couple_num++] = couple;
    }
}

} // namespace

void config_load(config *config, const char *path) {
    // "enable" must not be missing for any other reason than that the file lacks it.
    const json_ptr file = kolt_read_configuration(path);
    if (!file)
        KOLT_FATAL("parse config");
    config->bridge_num = 0;
    config->interface_num = 0;
    config->enable = flag_or(file.get(), "enable", false);
    if (json_object *section = json_member(file.get(), "bridges"))
        load_bridges(config, section);
    if (json_object *section = json_member(file.get(), "param"))
        load_param(&config->param, section);
    if (json_object *section = json_member(file.get(), "interfaces"))
        load_interfaces(config, section);
    if (json_object *section = json_member(file.get(), "backhual"))
        load_couples(config, section);
}

uint32_t config_get_timer_interval() {
    return kept.timer_interval;
}

uint8_t config_get_util_compensation() {
    return kept.util_compensation;
}
