// The entries of "interfaces" and "backhual": what becomes of each.
#include "check/spelling.h"
#include "check/text.h"
#include "check/values.h"
#include "check/walk.h"
#include "core/config_entry.h"
#include "core/config_settings.h"
#include "core/json.h"

#include <algorithm>
#include <cstring>

namespace {

// One member of a section that the loader walks over.
struct entry {
    const char *section;
    const char *key;
    json_object *value;
    const check_member *place;
};

const config_setting &vlan_row(int32_t exchange) {
    const auto takes = [&](const config_setting &row) { return row.exchange != 0 && row.exchange == exchange; };
    const auto *found = std::find_if(CONFIG_SETTINGS.begin(), CONFIG_SETTINGS.end(), takes);
    return found != CONFIG_SETTINGS.end() ? *found : vlan_row(CONFIG_EXCHANGE_ETHERNET);
}

int32_t vlan_id(const config_param &param, int32_t exchange) {
    int32_t id = 0;
    memcpy(&id, reinterpret_cast<const uint8_t *>(&param) + vlan_row(exchange).place.offset, sizeof id);
    return id;
}

// An interface's name before it is cut to its field.
std::string whole_name(const config_param &param, const entry &entry) {
    json_object *exchange = json_member(entry.value, "exchange");
    const std::string_view key(entry.key);
    if (exchange == nullptr)
        return std::string(key);
    return std::string(key.substr(0, key.empty() ? 0 : key.size() - 1)) +
           std::to_string(vlan_id(param, json_object_get_int(exchange)));
}

// The VLAN whose id is missing to an entry that is left out for it.
const char *missing_vlan(const config_param &param, const entry &entry) {
    json_object *exchange = json_member(entry.value, "exchange");
    const int32_t number = json_object_get_int(exchange);
    if (strcmp(entry.section, "interfaces") == 0)
        return vlan_row(number).key;
    const bool is_guest = number == CONFIG_EXCHANGE_PLC_GUEST;
    const config_exchange partner = is_guest ? CONFIG_EXCHANGE_PLC_GUEST : CONFIG_EXCHANGE_ETHERNET;
    if (exchange != nullptr && vlan_id(param, partner) == 0)
        return vlan_row(partner).key;
    return vlan_row(CONFIG_EXCHANGE_PLC_BACKHAUL).key;
}

std::string reason_of(const config_param &param, const entry &entry, config_entry result) {
    switch (result) {
    case CONFIG_ENTRY_NO_VLAN_ID:
        return std::string("its name needs \"") + missing_vlan(param, entry) + "\", which is 0 or missing";
    case CONFIG_ENTRY_NO_COUPLE:
        return "it has no \"couple\"";
    case CONFIG_ENTRY_NO_KEY_EXCHANGE:
        return "its \"key_exchange\" is not 4";
    default:
        return "";
    }
}

void leave_out(const check_walk &walk, const entry &entry, const std::string &reason) {
    walk.report->left_out.push_back({entry.section, entry.key, entry.place->at, reason});
    walk.add(entry.place->at, CHECK_WARNING, "left-out", check_quoted(entry.key) + " is left out: " + reason);
}

void refuse_type(const check_walk &walk, const entry &entry) {
    const check_member *type = entry.place->value.find("type");
    std::string names;
    for (const char *name : CONFIG_LINK_NAMES)
        names += (names.empty() ? "\"" : ", \"") + std::string(name) + '"';
    const char *given = json_member_text(entry.value, "type");
    const char *meant = given != nullptr ? check_suggestion(given, CONFIG_LINK_NAMES) : nullptr;
    std::string what =
        given != nullptr ? check_quoted(given) + " is no type." : check_quoted(entry.key) + " has no \"type\".";
    what += meant != nullptr ? " Did you mean \"" + std::string(meant) + "\"?" : "";
    walk.add(type != nullptr ? type->value.begin : entry.place->at, CHECK_ERROR, "link-type",
             what + " The daemon does not start; types are " + names);
    walk.report->starts = false;
    walk.report->left_out.push_back({entry.section, entry.key, entry.place->at, "it has no valid type"});
}

check_section section_of(const check_walk &walk, const entry &entry, const void *record) {
    return {.text = walk.text,
            .object = entry.value,
            .places = &entry.place->value,
            .at = entry.place->at,
            .record = record,
            .findings = &walk.report->findings};
}

void check_type_of_entry(const check_walk &walk, const entry &entry) {
    if (!json_object_is_type(entry.value, json_type_object))
        walk.add(entry.place->value.begin, CHECK_WARNING, "wrong-type",
                 check_quoted(entry.key) + " should be an object; what it is has no settings");
}

// Says what there is to say of the settings that decide about an entry as a whole.
void check_others(const check_walk &walk, const entry &entry, config_section kind) {
    const check_section section = section_of(walk, entry, nullptr);
    for (const config_setting &row : CONFIG_SETTINGS) {
        if (row.section == kind && row.place.width == 0)
            check_other_setting(section, row);
    }
}

void keep_interface(const check_walk &walk, const config_param &param, const entry &entry,
                    const config_interface &port) {
    check_entry kept = {entry.key, entry.place->at, {}};
    const check_section section = section_of(walk, entry, &port);
    for (const config_setting &row : CONFIG_SETTINGS) {
        if (row.section == CONFIG_INTERFACE && row.place.width != 0)
            kept.settings.push_back(check_read_setting(section, row));
    }
    check_name(walk, entry.place->at, check_field(port.name), whole_name(param, entry));
    walk.report->interfaces.push_back(std::move(kept));
}

void note_exchange(const check_walk &walk, int32_t exchange) {
    walk.report->exchanges |= 1U << exchange;
}

// Reads one interface; false when it has no valid type.
bool walk_interface(const check_walk &walk, const config_param &param, const entry &entry) {
    check_type_of_entry(walk, entry);
    check_keys(walk, entry.place->value, CONFIG_INTERFACE, "an interface");
    check_others(walk, entry, CONFIG_INTERFACE);
    if (json_object *exchange = json_member(entry.value, "exchange"))
        note_exchange(walk, vlan_row(json_object_get_int(exchange)).exchange);
    config_interface port;
    const config_entry result = config_read_interface(param, &port, entry.key, entry.value);
    if (result == CONFIG_ENTRY_NO_LINK_TYPE) {
        refuse_type(walk, entry);
        return false;
    }
    if (result == CONFIG_ENTRY_KEPT)
        keep_interface(walk, param, entry, port);
    else
        leave_out(walk, entry, reason_of(param, entry, result));
    return true;
}

void note_exchanges(const check_walk &walk, const entry &entry) {
    json_object *exchange = json_member(entry.value, "exchange");
    if (exchange != nullptr)
        note_exchange(walk, json_object_get_int(exchange) == CONFIG_EXCHANGE_PLC_GUEST ? CONFIG_EXCHANGE_PLC_GUEST
                                                                                       : CONFIG_EXCHANGE_ETHERNET);
    if (json_object_get_int(json_member(entry.value, "key_exchange")) == CONFIG_EXCHANGE_PLC_BACKHAUL)
        note_exchange(walk, CONFIG_EXCHANGE_PLC_BACKHAUL);
}

void walk_couple(const check_walk &walk, const config_param &param, const entry &entry) {
    check_type_of_entry(walk, entry);
    check_keys(walk, entry.place->value, CONFIG_COUPLE, "a couple");
    check_others(walk, entry, CONFIG_COUPLE);
    note_exchanges(walk, entry);
    config_couple couple;
    const config_entry result = config_read_couple(param, &couple, entry.key, entry.value);
    if (result != CONFIG_ENTRY_KEPT) {
        leave_out(walk, entry, reason_of(param, entry, result));
        return;
    }
    walk.report->couples.push_back({entry.key, entry.place->at, {}});
}

config_param param_of(const check_walk &walk) {
    config_param param;
    config_kept kept;
    if (json_object *section = json_member(walk.file, "param"))
        config_read_param(&param, &kept, section);
    return param;
}

} // namespace

void check_leave_out_past(const check_walk &walk, uint32_t capacity, const char *section, const char *key,
                          const check_member &place) {
    constexpr char REASON[] = "there is no room for it";
    std::vector<check_left_out> &left_out = walk.report->left_out;
    const bool said =
        !left_out.empty() && left_out.back().reason == REASON && left_out.back().section == std::string_view(section);
    left_out.push_back({section, key, place.at, REASON});
    if (!said)
        walk.add(place.at, CHECK_WARNING, "too-many",
                 "only " + std::to_string(capacity) + " entries of " + check_quoted(section) + " are kept; " +
                     check_quoted(key) + " and all behind it are left out");
}

void check_walk_interfaces(const check_walk &walk) {
    const check_part part = check_find_part(walk, "interfaces");
    if (part.object == nullptr)
        return;
    check_repeated_keys(walk, part.place->value, "\"interfaces\"");
    const config_param param = param_of(walk);
    std::vector<const char *> refused;
    json_object_object_foreach(part.object, key, value) {
        const entry entry = {"interfaces", key, value, &check_place(walk, part.place->value, key)};
        if (walk.report->interfaces.size() == CONFIG_MAX_INTERFACES) {
            check_leave_out_past(walk, CONFIG_MAX_INTERFACES, entry.section, key, *entry.place);
            continue;
        }
        if (!walk_interface(walk, param, entry))
            refused.push_back(entry.place->key.c_str());
    }
    for (const char *name : refused)
        json_object_object_del(part.object, name);
}

void check_walk_couples(const check_walk &walk) {
    const check_part part = check_find_part(walk, "backhual");
    if (part.object == nullptr)
        return;
    check_repeated_keys(walk, part.place->value, "\"backhual\"");
    const config_param param = param_of(walk);
    json_object_object_foreach(part.object, key, value) {
        const entry entry = {"backhual", key, value, &check_place(walk, part.place->value, key)};
        if (walk.report->couples.size() == CONFIG_MAX_COUPLES) {
            check_leave_out_past(walk, CONFIG_MAX_COUPLES, entry.section, key, *entry.place);
            continue;
        }
        walk_couple(walk, param, entry);
    }
}
