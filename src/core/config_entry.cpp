// The loops over settings go by a copy of the table that holds what they need: keys inside, no texts.
#include "core/config_entry.h"

#include "core/config_settings.h"
#include "core/json.h"
#include "core/names.h"

#include <algorithm>
#include <cstring>
#include <span>

namespace {

constexpr size_t KEY_SIZE = 24;

// A setting as far as reading it goes.
struct field_row {
    char key[KEY_SIZE];
    int32_t fallback;
    config_range clamp;
    uint16_t offset;
    uint8_t width;
    config_kind kind;
    uint8_t exchange;
};

constexpr bool is_in_record(const config_setting &row, config_section section) {
    return row.section == section && row.place.width != 0;
}

constexpr size_t count_fields(config_section section) {
    size_t count = 0;
    for (const config_setting &row : CONFIG_SETTINGS) {
        if (is_in_record(row, section))
            count++;
    }
    return count;
}

constexpr field_row field_of(const config_setting &row) {
    field_row copy = {
        {}, row.fallback, row.clamp, row.place.offset, row.place.width, row.kind, static_cast<uint8_t>(row.exchange)};
    std::copy_n(row.key, std::string_view(row.key).size() + 1, copy.key); // a key that does not fit is no constant
    return copy;
}

template <config_section Section> constexpr auto fields_of() {
    std::array<field_row, count_fields(Section)> fields{};
    size_t at = 0;
    for (const config_setting &row : CONFIG_SETTINGS) {
        if (is_in_record(row, Section))
            fields[at++] = field_of(row);
    }
    return fields;
}

constexpr auto PARAM_FIELDS = fields_of<CONFIG_PARAM>();
constexpr auto INTERFACE_FIELDS = fields_of<CONFIG_INTERFACE>();

int32_t integer_or(json_object *section, const char *key, int32_t fallback) {
    json_object *value = json_member(section, key);
    return value ? json_object_get_int(value) : fallback;
}

uint8_t flag_or(json_object *section, const char *key, bool fallback) {
    json_object *value = json_member(section, key);
    return (value ? json_object_get_boolean(value) != 0 : fallback) ? 1 : 0;
}

int32_t clamped(int32_t value, const config_range &range) {
    return std::clamp(value, range.lowest, range.highest);
}

uint32_t read_field(const field_row &field, json_object *section) {
    if (field.kind == CONFIG_FLAG)
        return flag_or(section, field.key, field.fallback != 0);
    if (field.kind == CONFIG_NEGATED_FLAG)
        return flag_or(section, field.key, field.fallback != 0) ^ 1U;
    const int32_t value = integer_or(section, field.key, field.fallback);
    if (field.kind == CONFIG_SECONDS)
        return static_cast<uint32_t>(value) * 1000U;
    // The value is cut to 8 bits before it is clamped, so -1 counts as 255 and becomes 10.
    return static_cast<uint32_t>(clamped(field.kind == CONFIG_NUMBER_CUT_FIRST ? value & 0xff : value, field.clamp));
}

// Deployed files count on what results where a number that passes its clamp wraps in a narrow member.
void store(uint8_t *at, uint8_t width, uint32_t value) {
    const auto narrow = static_cast<uint8_t>(value);
    const auto half = static_cast<uint16_t>(value);
    if (width == sizeof narrow)
        memcpy(at, &narrow, sizeof narrow);
    else if (width == sizeof half)
        memcpy(at, &half, sizeof half);
    else
        memcpy(at, &value, sizeof value);
}

void read_fields(void *record, std::span<const field_row> fields, json_object *section) {
    for (const field_row &field : fields)
        store(static_cast<uint8_t *>(record) + field.offset, field.width, read_field(field, section));
}

int32_t exchange_vlan_id(const config_param &param, int32_t exchange) {
    for (const field_row &field : PARAM_FIELDS) {
        if (field.exchange != 0 && field.exchange == exchange) {
            int32_t id = 0;
            memcpy(&id, reinterpret_cast<const uint8_t *>(&param) + field.offset, sizeof id);
            return id;
        }
    }
    return param.eth_vlan_id;
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

// Writes the kernel name of the interface keyed `key`; false when the VLAN that its name needs is not configured.
bool read_interface_name(const config_param &param, char *name, const char *key, json_object *value) {
    json_object *exchange = json_member(value, config_setting_of(CONFIG_INTERFACE, "exchange").key);
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
    for (const kolt_link_type type : KOLT_LINKS) {
        if (text != nullptr && strcmp(text, CONFIG_LINK_NAMES[type]) == 0)
            return type;
    }
    return KOLT_LINK_NONE;
}

// Writes the partner's name; false when the VLAN that its name needs is not configured.
bool read_couple_guest(const config_param &param, char *guest, const char *text, json_object *value) {
    json_object *exchange = json_member(value, config_setting_of(CONFIG_COUPLE, "exchange").key);
    if (exchange == nullptr) {
        kolt_copy_name(guest, text);
        return true;
    }
    int32_t id =
        json_object_get_int(exchange) == CONFIG_EXCHANGE_PLC_GUEST ? param.plc_vlan_guest_id : param.eth_vlan_id;
    if (id == 0)
        return false;
    write_exchanged_name(guest, text, id);
    return true;
}

} // namespace

uint8_t config_read_enable(json_object *file) {
    constexpr config_setting ENABLE = config_setting_of(CONFIG_TOP, "enable");
    return flag_or(file, ENABLE.key, ENABLE.fallback != 0);
}

void config_read_bridge(config_bridge *bridge, const char *name, json_object *value) {
    kolt_copy_name(bridge->name, name);
    if (flag_or(value, config_setting_of(CONFIG_BRIDGE, "loop_avoidance").key, false) != 0)
        bridge->flags |= CONFIG_LOOP_AVOIDANCE;
    if (flag_or(value, config_setting_of(CONFIG_BRIDGE, "path_selection").key, false) != 0)
        bridge->flags |= CONFIG_PATH_SELECTION;
}

void config_read_param(config_param *param, config_kept *kept, json_object *section) {
    constexpr config_setting COMPENSATION = config_setting_of(CONFIG_PARAM, "util_compensation");
    *param = config_param{};
    read_fields(param, PARAM_FIELDS, section);
    kept->timer_interval = param->period / 1000U;
    kept->util_compensation = flag_or(section, COMPENSATION.key, COMPENSATION.fallback != 0);
}

config_entry config_read_interface(const config_param &param, config_interface *port, const char *key,
                                   json_object *value) {
    if (!read_interface_name(param, port->name, key, value))
        return CONFIG_ENTRY_NO_VLAN_ID;
    port->type = link_type_from_string(json_member_text(value, config_setting_of(CONFIG_INTERFACE, "type").key));
    if (port->type == KOLT_LINK_NONE)
        return CONFIG_ENTRY_NO_LINK_TYPE;
    read_fields(port, INTERFACE_FIELDS, value);
    return CONFIG_ENTRY_KEPT;
}

config_entry config_read_couple(const config_param &param, config_couple *couple, const char *key, json_object *value) {
    const char *text = json_member_text(value, config_setting_of(CONFIG_COUPLE, "couple").key);
    if (text == nullptr)
        return CONFIG_ENTRY_NO_COUPLE;
    if (!read_couple_guest(param, couple->guest, text, value))
        return CONFIG_ENTRY_NO_VLAN_ID;
    json_object *key_exchange = json_member(value, config_setting_of(CONFIG_COUPLE, "key_exchange").key);
    if (key_exchange == nullptr) {
        kolt_copy_name(couple->lan, key);
        return CONFIG_ENTRY_KEPT;
    }
    if (json_object_get_int(key_exchange) != CONFIG_EXCHANGE_PLC_BACKHAUL)
        return CONFIG_ENTRY_NO_KEY_EXCHANGE;
    if (param.plc_vlan_backhaul_id == 0)
        return CONFIG_ENTRY_NO_VLAN_ID;
    // Built from the partner's name, not from the key: the two names of such a couple differ in the VLAN id alone.
    write_exchanged_name(couple->lan, text, param.plc_vlan_backhaul_id);
    return CONFIG_ENTRY_KEPT;
}
