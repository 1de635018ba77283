// Wi-Fi operations, whatever the driver. An operation that the driver lacks does nothing and returns 0.
#pragma once

#include "adaptors/wlan_platform.h"

#include <cstdint>

// Fills the rates and the RSSI of the uplink on `ifname`; 1, or 0.
int wlan_get_uplink_rate(const char *ifname, wlan_uplink_rate *rate, uint8_t *rssi, kolt_link_type type);

// Stores how busy the channel is, in percent; 1 when the driver could be read (it may have stored nothing), or 0.
int wlan_get_channel_utilization(const char *ifname, uint8_t *utilization, kolt_link_type type);

// Keep the links of a station or of an access point interface measured.
void wlan_activate_links(const char *ifname, const config_param *param, kolt_link_type type);
void wlan_activate_links_for_ap(const char *ifname, const config_param *param, kolt_link_type type);

// Forgets a station behind a WDS link.
void wlan_delete_wds_entry(const char *ifname, const uint8_t *mac);

// Stores what to add to a utilisation; 1, or 0.
int wlan_get_util_adjustment(const char *ifname, uint8_t selector, uint8_t *adjustment, uintptr_t word);

// 1 when the 5 GHz channel is quiet enough for this rate and utilisation, else 0.
int wlan_is_5g_low_noise(uint16_t rate, uint8_t utilization, uintptr_t word);

// Stores the associated stations of `ifname`, at most WLAN_MAX_LINKS; how many.
int wlan_get_links(const char *ifname, wlan_link *links);
