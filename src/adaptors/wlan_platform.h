// The driver operation table: everything that differs between Wi-Fi drivers and flow caches. A platform leaves the
// operations that it has not empty.
#pragma once

#include "core/config.h"
#include "core/interface_list.h"
#include "core/link_type.h"
#include "core/names.h"
#include "core/work_mode.h"

#include <cstddef>
#include <cstdint>

struct kolt_client_list;

constexpr uint8_t WLAN_MAX_LINKS = 16; // room in an array of associated stations

// One associated station. Rates and RSSI are in the driver's units.
struct wlan_link {
    uint8_t mac[KOLT_MAC_SIZE] = {};
    uint16_t activity = 0;
    uint16_t tx_rate = 0;
    uint16_t rx_rate = 0;
    uint8_t rssi = 0;
};

struct wlan_uplink_rate {
    uint16_t tx_rate = 0;
    uint16_t rx_rate = 0;
    uint8_t mac[KOLT_MAC_SIZE] = {}; // of the uplink peer
};

// A flow as the flow cache knows it; addresses and ports in network order.
struct kolt_flow {
    uint32_t src_ip = 0;
    uint32_t dst_ip = 0;
    uint16_t src_port = 0;
    uint16_t dst_port = 0;
    const uint8_t *src_mac = nullptr;
    const uint8_t *dst_mac = nullptr;
    uint8_t protocol = 0;
};

// The flow that a flush by HA entry names.
struct kolt_fc_flow_key {
    uint8_t src_mac[KOLT_MAC_SIZE] = {};
    uint8_t dst_mac[KOLT_MAC_SIZE] = {};
    uint16_t src_port = 0;
    uint16_t dst_port = 0;
    uint32_t protocol = 0;
    uint32_t zero = 0;
};
static_assert(sizeof(kolt_fc_flow_key) == 24);

// The generic operations of wlan.h and flow_cache.h say what each slot does.
struct wlan_platform {
    int (*get_uplink_rate)(const char *ifname, wlan_uplink_rate *rate, uint8_t *rssi, kolt_link_type type);
    int (*get_channel_utilization)(const char *ifname, uint8_t *utilization, kolt_link_type type, uint32_t one);
    void (*activate_links)(const char *ifname, const config_param *param, kolt_link_type type);
    void (*activate_links_for_ap)(const char *ifname, const config_param *param, kolt_link_type type);
    void (*delete_wds_entry)(const char *ifname, const uint8_t *mac);
    int (*get_util_adjustment)(const char *ifname, uint8_t selector, uint8_t *adjustment, uintptr_t word);
    int (*is_5g_low_noise)(uint16_t rate, uint8_t utilization, uintptr_t word);
    int (*get_links)(const char *ifname, wlan_link *links, kolt_link_type type);
    void (*reserved)();
    int (*flush_all_fcache_flow)();
    int (*flush_fcache_flow_entry)(uint32_t flow_idx);
    int (*update_fcache_flow_list)(uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d);
    int (*get_maximal_ha_entries_from_fcache)(kolt_client_list *clients, uint8_t limit,
                                              const kolt_interface_list *ports);
    void (*flush_fc_flow_by_ha)(const kolt_fc_flow_key *key, uint8_t path);
    int (*flush_fc_flow_by_mac)(const uint8_t *mac, uintptr_t word);
    int (*get_if_stat_from_fcache)(uint32_t ifindex, uint32_t *rx_packets, uint32_t *rx_bytes, uint32_t *tx_packets,
                                   uint32_t *tx_bytes);
    int (*cal_hash_and_set_ha)(const char *bridge, uint32_t protocol, uint32_t src_ip, uint32_t dst_ip,
                               uint16_t src_port, uint16_t dst_port, const uint8_t *src_mac, const uint8_t *dst_mac,
                               const char *ifname, uint16_t stream_kind, uint32_t carried_value);
    int (*configure_fc_mode)(kolt_work_mode mode);
};
static_assert(sizeof(wlan_platform) == 18 * sizeof(void (*)()));

// The table in use, chosen when the program is built.
extern const wlan_platform *wlan_platform_ops;
