// A node for path selection to act on: its configuration, real interfaces on the fake platform's bridges, radios whose
// figures the test sets, runtime files and bridge tables. The driver's and the flow cache's calls stand among the
// bridge library's in platform.calls, in readable form: "activate_links(wlan0, param, 2)".
#pragma once

#include "path_selection/context.h"
#include "path_selection/interface_cache.h"
#include "path_selection/period.h"
#include "probes/bridge_tables.h"
#include "support/node_fixture.h"
#include "support/recording_wlan.h"
#include "support/rows.h"

#include <algorithm>
#include <array>
#include <map>
#include <string>
#include <utility>
#include <vector>

// The driver and the flow cache beneath the adaptors.
struct scripted_driver {
    struct radio {
        uint16_t tx_rate = 0;
        uint16_t rx_rate = 0;
        uint8_t util = 0;
        uint8_t rssi = 0;
        int rate_result = 1; // what the two queries return
        int util_result = 1;
    };
    std::map<std::string, radio> radios; // by base name; an unknown one fails both queries

    // What went past the kernel, by interface index: received packets and bytes, sent packets and bytes.
    std::map<uint32_t, std::array<uint32_t, 4>> bypassed;
};
inline scripted_driver driver;

namespace scripted {

inline int get_uplink_rate(const char *ifname, wlan_uplink_rate *rate, uint8_t *rssi, kolt_link_type type) {
    const auto found = driver.radios.find(ifname);
    const bool known = found != driver.radios.end();
    if (known) {
        rate->tx_rate = found->second.tx_rate;
        rate->rx_rate = found->second.rx_rate;
        *rssi = found->second.rssi;
    }
    const int result = known ? found->second.rate_result : 0;
    platform.calls.push_back(std::string("get_uplink_rate(") + ifname + ", " + std::to_string(type) + ")");
    return result;
}

inline int get_channel_utilization(const char *ifname, uint8_t *utilization, kolt_link_type type, uint32_t one) {
    platform.calls.push_back(std::string("get_channel_utilization(") + ifname + ", " + std::to_string(type) + ", " +
                             std::to_string(one) + ")");
    const auto found = driver.radios.find(ifname);
    if (found == driver.radios.end())
        return 0;
    *utilization = found->second.util;
    return found->second.util_result;
}

// "param" is the configuration's own block, "config" the configuration of the module.
inline std::string param_name(const config_param *param) {
    return path_selection_ctx.configuration != nullptr && param == &path_selection_ctx.configuration->param ? "param"
                                                                                                            : "other";
}
inline void activate_links(const char *ifname, const config_param *param, kolt_link_type type) {
    (void)recording::call("activate_links", ifname, param_name(param), type);
}
inline void activate_links_for_ap(const char *ifname, const config_param *param, kolt_link_type type) {
    (void)recording::call("activate_links_for_ap", ifname, param_name(param), type);
}
inline int is_5g_low_noise(uint16_t rate, uint8_t utilization, uintptr_t word) {
    const bool own = word == reinterpret_cast<uintptr_t>(path_selection_ctx.configuration);
    return recording::call("is_5g_low_noise", rate, utilization, own ? "config" : "other");
}
inline int get_maximal_ha_entries_from_fcache(kolt_client_list *clients, uint8_t limit,
                                              const kolt_interface_list *ports) {
    return recording::call("get_maximal_ha_entries_from_fcache", clients->count, limit, ports->count);
}
inline void flush_fc_flow_by_ha(const kolt_fc_flow_key *key, uint8_t path) {
    (void)recording::call("flush_fc_flow_by_ha", recording::mac(key->src_mac), recording::mac(key->dst_mac),
                          key->src_port, key->dst_port, key->protocol, key->zero, path);
}
inline int get_if_stat_from_fcache(uint32_t ifindex, uint32_t *rx_packets, uint32_t *rx_bytes, uint32_t *tx_packets,
                                   uint32_t *tx_bytes) {
    const auto found = driver.bypassed.find(ifindex);
    const int result = recording::call("get_if_stat_from_fcache", ifindex);
    if (found == driver.bypassed.end())
        return result;
    *rx_packets = found->second[0];
    *rx_bytes = found->second[1];
    *tx_packets = found->second[2];
    *tx_bytes = found->second[3];
    return 1;
}

inline wlan_platform make_table() {
    wlan_platform table = recording::table;
    table.get_uplink_rate = get_uplink_rate;
    table.get_channel_utilization = get_channel_utilization;
    table.activate_links = activate_links;
    table.activate_links_for_ap = activate_links_for_ap;
    table.is_5g_low_noise = is_5g_low_noise;
    table.get_maximal_ha_entries_from_fcache = get_maximal_ha_entries_from_fcache;
    table.flush_fc_flow_by_ha = flush_fc_flow_by_ha;
    table.get_if_stat_from_fcache = get_if_stat_from_fcache;
    return table;
}
inline const wlan_platform table = make_table();

} // namespace scripted

inline std::string name_of(const char (&field)[KOLT_NAME_SIZE]) {
    return {field, strnlen(field, sizeof field)};
}

// A MAC that is told from others by its last octet: "02:4B:00:00:00:07" for 7.
inline mac_address numbered_mac(uint8_t number) {
    return {0x02, 0x4B, 0, 0, 0, number};
}
inline std::string text_of_mac(uint8_t number) {
    return recording::mac(numbered_mac(number).data());
}

// A present row of a path table.
inline ps_path make_path(kolt_link_type type, const std::string &name, uint16_t rate, int16_t quota,
                         uint8_t priority = 0) {
    ps_path row;
    set_name(row.name, name);
    row.path = type;
    row.rate = rate;
    row.quota = quota;
    row.priority = priority;
    return row;
}

class Paths : public node_fixture {
protected:
    void SetUp() override {
        driver = scripted_driver{};
        path_selection_ctx = path_selection_context{};
        path_selection_ctx.configuration = &config_;
        path_selection_ctx.hd_sample_ring.fill(PATH_NONE);
        set_work_mode("RE");
    }

    // A real interface with a MAC, which no configuration knows yet; its index.
    uint32_t add_interface(const std::string &name, uint8_t mac_number = 0) {
        test_interface &made = make_interface(name);
        if (mac_number != 0)
            made.set_mac(numbered_mac(mac_number).data());
        return made.index();
    }

    // Configures a bridge. An active one exists in the kernel, with the numbered MAC 200, 201, ...
    config_bridge &add_bridge(const std::string &name, uint32_t flags = CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION,
                              bool active = true) {
        config_bridge &bridge = configure_bridge(name, flags, active);
        if (active)
            add_interface(name, static_cast<uint8_t>(199 + config_.bridge_num));
        return bridge;
    }

    // Configures an interface and makes it a port of a bridge: a path port without relay unless told otherwise.
    config_interface &add_port(const std::string &name, kolt_link_type type, uint8_t relay = 0, uint8_t path = 1,
                               const std::string &bridge = "br-lan") {
        config_interface &port = configure_port(name, type, relay, bridge);
        port.path = path;
        return port;
    }

    // A Wi-Fi path port "<base>.1" with its link up and its radio at these figures.
    config_interface &add_wifi(const std::string &base, kolt_link_type type, uint16_t rate, uint8_t util,
                               const std::string &bridge = "br-lan") {
        set_link(type, true);
        driver.radios[base] = {.tx_rate = rate, .rx_rate = rate, .util = util};
        return add_port(base + ".1", type, 0, 1, bridge);
    }

    // The three tables of the bridges, which all of them share.
    static void add_client(uint8_t number, const std::string &port) {
        fdb_entry entry{};
        std::ranges::copy(numbered_mac(number), entry.mac);
        entry.port_low = static_cast<uint8_t>(index_of(port) % 256);
        entry.port_high = static_cast<uint8_t>(index_of(port) / 256);
        platform.add_entry(2, entry);
    }
    static void add_hd(uint8_t number, uint8_t second, uint32_t port) {
        hd_entry entry{};
        std::ranges::copy(numbered_mac(number), entry.client_mac);
        std::ranges::copy(numbered_mac(second), entry.second_mac);
        entry.port = port;
        platform.add_entry(1, entry);
    }
    // A stream to a client from station 100. Only a client with an HD entry has its streams read.
    static void add_stream(uint8_t client, const std::string &port, uint32_t bytes, uint32_t packets = 100) {
        ha_table_entry entry{};
        std::ranges::copy(numbered_mac(100), entry.src_addr);
        std::ranges::copy(numbered_mac(client), entry.dst_addr);
        entry.port = index_of(port);
        entry.counter_a = packets;
        entry.counter_b = bytes;
        platform.add_entry(8, entry);
    }

    // The calls so far, but for the queries of the bridge, and from here on none.
    static lines take_calls() {
        lines calls = platform.programming();
        std::erase_if(calls, [](const std::string &call) { return call.starts_with("bridgeTableAction"); });
        platform.calls.clear();
        return calls;
    }
    // Those of one function only.
    static lines calls_of(const std::string &function) {
        lines calls;
        std::ranges::copy_if(platform.calls, std::back_inserter(calls),
                             [&function](const std::string &call) { return call.starts_with(function + "("); });
        return calls;
    }

    // One period of every bridge.
    void run_period() {
        path_selection_run_period(&config_, &workspace_);
    }

private:
    std::vector<kolt_client> clients_ = std::vector<kolt_client>(KOLT_MAX_CLIENTS);
    ps_workspace workspace_{.clients = clients_.data(), .used_clients = 0, .ranking = {}};
    const installed_table table_{&scripted::table};
};
