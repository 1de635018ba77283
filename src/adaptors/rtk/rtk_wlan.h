// The Wi-Fi operations of wlan.h, by the Realtek driver's text files.
#pragma once

#include "adaptors/wlan_platform.h"

#include <cstdint>
#include <span>

// Wakes the link of every station whose activity is above the threshold, `times` times in a row.
void rtk_activate_stations(const char *ifname, std::span<const wlan_link> stations, uint16_t idle_threshold,
                           uint16_t times);

// The driver operations of the same names in wlan.h.
int wlan_get_uplink_rate_rtk(const char *ifname, wlan_uplink_rate *rate, uint8_t *rssi, kolt_link_type type);
int wlan_get_channel_utilization_rtk(const char *ifname, uint8_t *utilization, kolt_link_type type, uint32_t one);
void wlan_activate_links_rtk(const char *ifname, const config_param *param, kolt_link_type type);
void wlan_activate_links_for_ap_rtk(const char *ifname, const config_param *param, kolt_link_type type);
void wlan_delete_wds_entry_rtk(const char *ifname, const uint8_t *mac);
int wlan_get_util_adjustment_rtk(const char *ifname, uint8_t selector, uint8_t *adjustment, uintptr_t word);
