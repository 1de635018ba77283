// What is to be known of one setting of the configuration file. core/config_settings.h lists them all.
#pragma once

#include "core/config.h"

#include <cstddef>
#include <cstdint>
#include <limits>

// The objects in which settings stand; a bridge, an interface and a couple are each a member of the object named so.
enum config_section : uint8_t {
    CONFIG_TOP = 0,
    CONFIG_BRIDGE = 1,
    CONFIG_PARAM = 2,
    CONFIG_INTERFACE = 3,
    CONFIG_COUPLE = 4,
};

enum config_kind : uint8_t {
    CONFIG_FLAG = 0,
    CONFIG_NEGATED_FLAG = 1,
    CONFIG_NUMBER = 2,           // clamped, then cut to the member's width
    CONFIG_NUMBER_CUT_FIRST = 3, // cut to 8 bits, then clamped
    CONFIG_SECONDS = 4,          // kept in milliseconds
    CONFIG_TEXT = 5,             // the kinds from here on have no default
    CONFIG_LINK_NAME = 6,
    CONFIG_SELECTOR = 7, // decides how a name is built
};

// Numbers from `lowest` to `highest`.
struct config_range {
    int32_t lowest;
    int32_t highest;
};
constexpr config_range CONFIG_ANY = {std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()};
constexpr config_range CONFIG_PERCENT = {0, 100};
constexpr config_range CONFIG_VLAN_IDS = {0, 4094};

// Where a record keeps a setting. Settings of a width of 0 are kept elsewhere or decide about the entry as a whole.
struct config_place {
    const char *member = "";
    uint16_t offset = 0;
    uint8_t width = 0;
};

struct config_setting {
    config_section section;
    const char *key;
    config_kind kind;
    config_place place;
    int32_t fallback;    // when the key is missing
    config_range clamp;  // what the loader makes of any number
    config_range sound;  // what is kept as it stands in the file and makes sense
    const char *unit;    // empty without one
    bool is_read;        // by anything but the loader
    int32_t exchange;    // the "exchange" that takes its VLAN id from here, 0: none
    const char *meaning; // one line
};

// The link types by their names in the file.
constexpr const char *CONFIG_LINK_NAMES[KOLT_LINK_COUNT] = {"ethernet", "plc", "2.4g", "5g", "5g_2"};

// How a name is derived when an entry carries an "exchange" or "key_exchange"; any other takes the Ethernet VLAN's id.
enum config_exchange : int32_t {
    CONFIG_EXCHANGE_ETHERNET = 1,
    CONFIG_EXCHANGE_IPTV = 2,
    CONFIG_EXCHANGE_IPTV_BACKHAUL = 3,
    CONFIG_EXCHANGE_PLC_BACKHAUL = 4,
    CONFIG_EXCHANGE_PLC_GUEST = 5,
    CONFIG_EXCHANGE_PLC_IPTV = 6,
};

#define KOLT_PLACE(record, name)                                                                                       \
    { #name, offsetof(record, name), sizeof(record::name) }

namespace config_rows {

constexpr config_setting flag(config_section section, const char *key, config_place place, bool fallback,
                              const char *meaning) {
    return {section, key, CONFIG_FLAG, place, fallback ? 1 : 0, CONFIG_ANY, {0, 1}, "", true, 0, meaning};
}

constexpr config_setting number(config_section section, const char *key, config_place place, int32_t fallback,
                                config_range clamp, config_range sound, const char *unit, const char *meaning) {
    return {section, key, CONFIG_NUMBER, place, fallback, clamp, sound, unit, true, 0, meaning};
}

constexpr config_setting percent(const char *key, config_place place, int32_t fallback, const char *meaning) {
    return number(CONFIG_PARAM, key, place, fallback, CONFIG_PERCENT, CONFIG_PERCENT, "percent", meaning);
}

constexpr config_setting vlan_id(const char *key, config_place place, config_exchange exchange, const char *meaning) {
    config_setting row = number(CONFIG_PARAM, key, place, 0, CONFIG_VLAN_IDS, CONFIG_VLAN_IDS, "", meaning);
    row.exchange = exchange;
    return row;
}

constexpr config_setting other(config_section section, const char *key, config_kind kind, config_range sound,
                               const char *meaning) {
    return {section, key, kind, {}, 0, CONFIG_ANY, sound, "", true, 0, meaning};
}

constexpr config_setting with_kind(config_setting row, config_kind kind) {
    row.kind = kind;
    return row;
}

constexpr config_setting unread(config_setting row) {
    row.is_read = false;
    return row;
}

} // namespace config_rows
