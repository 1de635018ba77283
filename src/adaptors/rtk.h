// The Realtek driver's operations: Wi-Fi through the driver's text files, the HA hash of its flow cache.
#pragma once

#include "adaptors/wlan_platform.h"

#include <cstdint>
#include <span>

extern const wlan_platform wlan_platform_rtk;

// Stores the associated stations of `ifname`, at most WLAN_MAX_LINKS, and returns how many; 0 after a message when the
// driver's table cannot be read. `activity` is not filled: the driver has no such figure.
uint8_t wlan_get_links_rtk(const char *ifname, wlan_link *links, uint32_t type);

// Wakes the link of every station whose activity is above the threshold, `times` times in a row.
void rtk_activate_stations(const char *ifname, std::span<const wlan_link> stations, uint16_t idle_threshold,
                           uint16_t times);

// The driver operations of the same names in wlan.h.
int wlan_get_uplink_rate_rtk(const char *ifname, wlan_uplink_rate *rate, uint8_t *rssi, uint32_t type);
int wlan_get_channel_utilization_rtk(const char *ifname, uint8_t *utilization, uint32_t type, uint32_t one);
void wlan_activate_links_rtk(const char *ifname, const config_param *param, uint32_t type);
void wlan_activate_links_for_ap_rtk(const char *ifname, const config_param *param, uint32_t type);
void wlan_delete_wds_entry_rtk(const char *ifname, const uint8_t *mac);
int wlan_get_util_adjustment_rtk(const char *ifname, uint8_t selector, uint8_t *adjustment, uintptr_t word);

// The HA bucket of a flow.
uint8_t kolt_ha_hash_rtk(const kolt_flow &flow);

int kolt_cal_hash_and_set_ha_rtk(const char *bridge, uint32_t protocol, uint32_t src_ip, uint32_t dst_ip,
                                 uint16_t src_port, uint16_t dst_port, const uint8_t *src_mac, const uint8_t *dst_mac,
                                 const char *ifname, uint16_t stream_kind, uint32_t carried_value);
