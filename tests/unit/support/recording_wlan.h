// A driver operation table that records every call in the fake platform's list, among the bridge's own calls and in
// order with them, and returns what the test scripted there (platform.fail("get_links", 7)), or 0.
#pragma once

#include "adaptors/wlan_platform.h"
#include "support/fake_platform.h"

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace recording {

// How a pointer argument that is handed on reads in a recorded call.
inline std::string address(const void *pointer) {
    std::ostringstream text;
    text << pointer;
    return text.str();
}

inline std::string mac(const uint8_t *octets) {
    char text[18];
    snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", octets[0], octets[1], octets[2], octets[3], octets[4],
             octets[5]);
    return text;
}

inline std::string text_of(const char *value) {
    return value;
}
inline std::string text_of(const std::string &value) {
    return value;
}
template <class Number> std::string text_of(Number value) {
    return std::to_string(value);
}

template <class... Arguments> int call(const char *slot, const Arguments &...arguments) {
    const std::vector<std::string> texts = {text_of(arguments)...};
    std::string list;
    for (const std::string &text : texts)
        list += (&text == texts.data() ? "" : ", ") + text;
    return platform.result_of(slot, list);
}

inline const wlan_platform table = {
    .get_uplink_rate =
        [](const char *ifname, wlan_uplink_rate *rate, uint8_t *rssi, kolt_link_type type) {
            return call("get_uplink_rate", ifname, address(rate), address(rssi), type);
        },
    .get_channel_utilization =
        [](const char *ifname, uint8_t *utilization, kolt_link_type type, uint32_t one) {
            return call("get_channel_utilization", ifname, address(utilization), type, one);
        },
    .activate_links = [](const char *ifname, const config_param *param,
                         kolt_link_type type) { (void)call("activate_links", ifname, address(param), type); },
    .activate_links_for_ap =
        [](const char *ifname, const config_param *param, kolt_link_type type) {
            (void)call("activate_links_for_ap", ifname, address(param), type);
        },
    .delete_wds_entry = [](const char *ifname,
                           const uint8_t *station) { (void)call("delete_wds_entry", ifname, mac(station)); },
    .get_util_adjustment =
        [](const char *ifname, uint8_t selector, uint8_t *adjustment, uintptr_t word) {
            return call("get_util_adjustment", ifname, selector, address(adjustment), word);
        },
    .is_5g_low_noise = [](uint16_t rate, uint8_t utilization,
                          uintptr_t word) { return call("is_5g_low_noise", rate, utilization, word); },
    .get_links = [](const char *ifname, wlan_link *links,
                    kolt_link_type type) { return call("get_links", ifname, address(links), type); },
    .reserved = [] { (void)call("reserved"); },
    .flush_all_fcache_flow = [] { return call("flush_all_fcache_flow"); },
    .flush_fcache_flow_entry = [](uint32_t flow_idx) { return call("flush_fcache_flow_entry", flow_idx); },
    .update_fcache_flow_list = [](uintptr_t a, uintptr_t b, uintptr_t c,
                                  uintptr_t d) { return call("update_fcache_flow_list", a, b, c, d); },
    .get_maximal_ha_entries_from_fcache =
        [](kolt_client_list *clients, uint8_t limit, const kolt_interface_list *ports) {
            return call("get_maximal_ha_entries_from_fcache", address(clients), limit, address(ports));
        },
    .flush_fc_flow_by_ha = [](const kolt_fc_flow_key *key,
                              uint8_t path) { (void)call("flush_fc_flow_by_ha", address(key), path); },
    .flush_fc_flow_by_mac = [](const uint8_t *station,
                               uintptr_t word) { return call("flush_fc_flow_by_mac", mac(station), word); },
    .get_if_stat_from_fcache =
        [](uint32_t ifindex, uint32_t *rx_packets, uint32_t *rx_bytes, uint32_t *tx_packets, uint32_t *tx_bytes) {
            return call("get_if_stat_from_fcache", ifindex, address(rx_packets), address(rx_bytes), address(tx_packets),
                        address(tx_bytes));
        },
    .cal_hash_and_set_ha =
        [](const char *bridge, uint32_t protocol, uint32_t src_ip, uint32_t dst_ip, uint16_t src_port,
           uint16_t dst_port, const uint8_t *src_mac, const uint8_t *dst_mac, const char *ifname, uint16_t stream_kind,
           uint32_t carried_value) {
            return call("cal_hash_and_set_ha", bridge, protocol, src_ip, dst_ip, src_port, dst_port, mac(src_mac),
                        mac(dst_mac), ifname, stream_kind, carried_value);
        },
    .configure_fc_mode = [](kolt_work_mode mode) { return call("configure_fc_mode", mode); },
};

} // namespace recording

// Installs a driver table, or none at all, for as long as it lives.
class installed_table {
public:
    explicit installed_table(const wlan_platform *table) : before_(wlan_platform_ops) {
        wlan_platform_ops = table;
    }
    ~installed_table() {
        wlan_platform_ops = before_;
    }
    installed_table(const installed_table &) = delete;
    installed_table &operator=(const installed_table &) = delete;

private:
    const wlan_platform *before_;
};
