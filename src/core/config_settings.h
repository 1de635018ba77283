// Every setting of the configuration file: its key, the member that keeps it, how it is read, and what it does. The
// loader and kolt-check go by this table; schema, manual page and guide are compared with it.
#pragma once

#include "core/config_setting.h"

#include <array>
#include <string_view>

namespace config_rows {

constexpr std::array TOP = {
    flag(CONFIG_TOP, "enable", {}, false, "Whether the daemon runs; disabled, it ends at once with status 0."),
};

constexpr std::array BRIDGE = {
    flag(CONFIG_BRIDGE, "loop_avoidance", {}, false,
         "Programs the bridge's ports so that broadcast does not circle between them."),
    flag(CONFIG_BRIDGE, "path_selection", {}, false,
         "Measures the bridge's backhaul paths and places clients and streams on them."),
};

constexpr config_range PERIODS = {1, 2147483}; // what the timer can count, in seconds

constexpr std::array MEASURING = {
    with_kind(number(CONFIG_PARAM, "period", KOLT_PLACE(config_param, period), 0, CONFIG_ANY, PERIODS, "seconds",
                     "How often path selection measures and decides; 0 leaves no pause between two periods."),
              CONFIG_SECONDS),
    percent("high_threshold", KOLT_PLACE(config_param, high_threshold), 70,
            "A path whose channel is busier than this is overloaded: only then are streams moved."),
    percent("delta_threshold", KOLT_PLACE(config_param, delta_threshold), 10,
            "How much busier than the best path an overloaded one must be before streams leave it."),
    percent("reserved_ratio", KOLT_PLACE(config_param, reserved_ratio), 0,
            "The share of every path's capacity that is never given to anybody."),
    number(
        CONFIG_PARAM, "idle_threshold", KOLT_PLACE(config_param, idle_threshold), 10, {0, 1000}, {0, 1000}, "",
        "A Wi-Fi station whose activity is above this, as its driver counts, gets frames that keep its rate measured."),
    number(CONFIG_PARAM, "activate_pkts", KOLT_PLACE(config_param, activate_pkts), 1, {0, 1000}, {0, 1000}, "",
           "How many such frames a station of an extender's backhaul gets in a period."),
    flag(CONFIG_PARAM, "wlan_enable", KOLT_PLACE(config_param, wlan_enable), false,
         "Whether the Wi-Fi paths are measured; without it no path is known and nothing is placed."),
    unread(flag(CONFIG_PARAM, "plc_enable", KOLT_PLACE(config_param, plc_enable), false,
                "Has no effect: power line is not measured.")),
};

constexpr std::array ADJUSTING = {
    unread(number(CONFIG_PARAM, "plc_rate_ratio", KOLT_PLACE(config_param, plc_rate_ratio), 100, CONFIG_ANY, {0, 255},
                  "percent", "Has no effect: power line is not measured.")),
    number(CONFIG_PARAM, "adjusted_streams", KOLT_PLACE(config_param, adjusted_streams), 1, {0, 1000}, {0, 255}, "",
           "How many streams of one client move in a period at most."),
    percent("adjusted_ratio", KOLT_PLACE(config_param, adjusted_ratio), 50,
            "How much of the best path's free capacity the streams of one client may take in a period."),
    flag(CONFIG_PARAM, "estimate_ack_enable", KOLT_PLACE(config_param, estimate_ack_enable), false,
         "Whether streams that only acknowledge are recognised and their bytes estimated."),
    number(CONFIG_PARAM, "cpu_threshold", KOLT_PLACE(config_param, cpu_threshold), 0, CONFIG_ANY, CONFIG_PERCENT,
           "percent", "Above this CPU load the 2.4 GHz path gets nothing; 0 switches this off."),
    unread(number(CONFIG_PARAM, "abn_threshold", KOLT_PLACE(config_param, abn_threshold), 0, CONFIG_ANY, {0, 255}, "",
                  "Has no effect.")),
};

constexpr std::array BACKHAUL = {
    vlan_id("eth_vlan_id", KOLT_PLACE(config_param, eth_vlan_id), CONFIG_EXCHANGE_ETHERNET,
            "The number that names with an \"exchange\" of 1, or of none of 2 to 6, end in; 0 leaves them out."),
    vlan_id("iptv_vlan_id", KOLT_PLACE(config_param, iptv_vlan_id), CONFIG_EXCHANGE_IPTV,
            "The number that names with an \"exchange\" of 2 end in; 0 leaves them out."),
    vlan_id("iptv_vlan_backhaul_id", KOLT_PLACE(config_param, iptv_vlan_backhaul_id), CONFIG_EXCHANGE_IPTV_BACKHAUL,
            "The number that names with an \"exchange\" of 3 end in; 0 leaves them out."),
    flag(CONFIG_PARAM, "cpu_limit", KOLT_PLACE(config_param, cpu_limit), false,
         "Saves CPU: clients go where most went lately, and stay where they are while the node is busy."),
    number(
        CONFIG_PARAM, "backhual_prefered", KOLT_PLACE(config_param, backhual_prefered), 0, {0, 4}, {0, 4}, "",
        "The path that all clients use while it is fast enough: 1 is 2.4 GHz, 2 is 5 GHz, 3 the second 5 GHz; 0 and 4 "
        "are none."),
    number(CONFIG_PARAM, "rate_threshold", KOLT_PLACE(config_param, rate_threshold), 0, CONFIG_ANY, {0, 65535},
           "Mbit/s", "The rate above which the preferred path is used."),
    flag(CONFIG_PARAM, "wifi_rate_check", KOLT_PLACE(config_param, wifi_rate_check), true,
         "Whether a 5 GHz path that is abnormally slow beside a healthy 2.4 GHz one is left alone."),
    number(CONFIG_PARAM, "rate_abnormal_threshold", KOLT_PLACE(config_param, rate_abnormal_threshold), 13, CONFIG_ANY,
           {0, 65535}, "Mbit/s", "The rate that is healthy for this check."),
    vlan_id("plc_vlan_backhaul_id", KOLT_PLACE(config_param, plc_vlan_backhaul_id), CONFIG_EXCHANGE_PLC_BACKHAUL,
            "The number that names with an \"exchange\" or \"key_exchange\" of 4 end in; 0 leaves them out."),
    vlan_id("plc_vlan_guest_id", KOLT_PLACE(config_param, plc_vlan_guest_id), CONFIG_EXCHANGE_PLC_GUEST,
            "The number that names with an \"exchange\" of 5 end in; 0 leaves them out."),
    vlan_id("plc_vlan_iptv_id", KOLT_PLACE(config_param, plc_vlan_iptv_id), CONFIG_EXCHANGE_PLC_IPTV,
            "The number that names with an \"exchange\" of 6 end in; 0 leaves them out."),
    unread(flag(CONFIG_PARAM, "util_compensation", {}, false, "Has no effect.")),
};

constexpr std::array INTERFACE = {
    other(CONFIG_INTERFACE, "type", CONFIG_LINK_NAME, CONFIG_ANY,
          "What link the port is. Required: without a valid type the daemon does not start."),
    other(CONFIG_INTERFACE, "exchange", CONFIG_SELECTOR, {CONFIG_EXCHANGE_ETHERNET, CONFIG_EXCHANGE_PLC_IPTV},
          "Replaces the last character of the port's name by a VLAN id, and selects which."),
    number(CONFIG_INTERFACE, "compat_group", KOLT_PLACE(config_interface, compat_group), 255, CONFIG_ANY, {0, 255}, "",
           "The compatibility group that the bridge gets for the port."),
    with_kind(number(CONFIG_INTERFACE, "priority", KOLT_PLACE(config_interface, priority), 0, {0, 10}, {0, 10}, "",
                     "Each step adds 20 percent of its capacity to the path's score when clients are placed."),
              CONFIG_NUMBER_CUT_FIRST),
    with_kind(flag(CONFIG_INTERFACE, "nonrelay", KOLT_PLACE(config_interface, relay), false,
                   "Of the nonrelay ports of a class one carries broadcast; a relay port always does."),
              CONFIG_NEGATED_FLAG),
    flag(CONFIG_INTERFACE, "path", KOLT_PLACE(config_interface, path), false, "Whether the port is a backhaul path."),
    number(CONFIG_INTERFACE, "class", KOLT_PLACE(config_interface, class_), 0, CONFIG_ANY, {0, 1}, "",
           "The broadcast class; path selection leaves class 1 alone."),
    flag(CONFIG_INTERFACE, "needha", KOLT_PLACE(config_interface, needha), false,
         "Whether the bridge keeps an HA entry for each stream on the port."),
    unread(flag(CONFIG_INTERFACE, "ssdp_allow", KOLT_PLACE(config_interface, ssdp_allow), false, "Has no effect.")),
    unread(flag(CONFIG_INTERFACE, "ctl_iface", KOLT_PLACE(config_interface, ctl_iface), false, "Has no effect.")),
};

constexpr std::array COUPLE = {
    other(CONFIG_COUPLE, "couple", CONFIG_TEXT, CONFIG_ANY,
          "The partner in the guest network. Required: without it the couple is left out."),
    other(CONFIG_COUPLE, "exchange", CONFIG_SELECTOR, {CONFIG_EXCHANGE_ETHERNET, CONFIG_EXCHANGE_PLC_IPTV},
          "Replaces the last character of the partner's name by the power-line guest VLAN's id (5) or the Ethernet "
          "VLAN's (any other)."),
    other(CONFIG_COUPLE, "key_exchange", CONFIG_SELECTOR, {CONFIG_EXCHANGE_PLC_BACKHAUL, CONFIG_EXCHANGE_PLC_BACKHAUL},
          "Makes the backhaul's name from the partner's, its last character replaced by the power-line backhaul "
          "VLAN's id (4); with any other number the couple is left out."),
};

template <size_t... Sizes> constexpr auto joined(const std::array<config_setting, Sizes> &...parts) {
    std::array<config_setting, (Sizes + ...)> all{};
    size_t at = 0;
    const auto append = [&](const auto &part) {
        for (const config_setting &row : part)
            all[at++] = row;
    };
    (append(parts), ...);
    return all;
}

} // namespace config_rows

// In the order of the sections, and in each in the order of the record.
constexpr std::array CONFIG_SETTINGS =
    config_rows::joined(config_rows::TOP, config_rows::BRIDGE, config_rows::MEASURING, config_rows::ADJUSTING,
                        config_rows::BACKHAUL, config_rows::INTERFACE, config_rows::COUPLE);

// The row of a key; the last row when there is none, which the compiler refuses.
consteval const config_setting &config_setting_of(config_section section, std::string_view key) {
    size_t i = 0;
    while (CONFIG_SETTINGS[i].section != section || CONFIG_SETTINGS[i].key != key)
        i++; // past the end it is no constant
    return CONFIG_SETTINGS[i];
}
