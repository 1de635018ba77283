// The driver's answers to the Wi-Fi operations.
#include "adaptors/rtk/rtk_wlan.h"

#include "adaptors/rtk/rtk_driver_file.h"
#include "adaptors/rtk/rtk_stations.h"
#include "core/log.h"
#include "probes/link_activation.h"

#include <cstdio>
#include <cstring>

namespace {

void activate(const char *ifname, const config_param *param, kolt_link_type type, uint16_t times) {
    wlan_link links[WLAN_MAX_LINKS];
    const uint8_t count = wlan_get_links_rtk(ifname, links, type);
    rtk_activate_stations(ifname, {links, count}, param->idle_threshold, times);
}

} // namespace

void rtk_activate_stations(const char *ifname, std::span<const wlan_link> stations, uint16_t idle_threshold,
                           uint16_t times) {
    for (const wlan_link &station : stations) {
        if (station.activity <= idle_threshold)
            continue;
        for (uint16_t sent = 0; sent < times; sent++)
            (void)kolt_activate_link(ifname, station.mac); // it logs its failures; the next period tries again
    }
}

int wlan_get_uplink_rate_rtk(const char *ifname, wlan_uplink_rate *rate, uint8_t *rssi, kolt_link_type type) {
    wlan_link links[WLAN_MAX_LINKS];
    if (wlan_get_links_rtk(ifname, links, type) == 0)
        return 0;
    memcpy(rate->mac, links[0].mac, sizeof rate->mac);
    // The peer's own rate is stale while it only acknowledges; what this side sends with stands for both directions.
    rate->tx_rate = links[0].tx_rate;
    rate->rx_rate = links[0].tx_rate;
    *rssi = links[0].rssi;
    KOLT_INFO("ifname: %.16s, txrate: %d, rxrate: %d, rssi: %d", ifname, rate->tx_rate, rate->rx_rate, *rssi);
    return 1;
}

int wlan_get_channel_utilization_rtk(const char *ifname, uint8_t *utilization, kolt_link_type type, uint32_t /*one*/) {
    rtk_driver_file stats = rtk_open_driver_file(ifname, type, "stats");
    if (!stats.lines) {
        KOLT_ERROR("popen cmd %s", stats.command);
        return 0;
    }
    char buffer[RTK_LINE_SIZE];
    int percent = -1;
    while (const char *line = rtk_next_line(&stats, buffer)) {
        const char *at = strstr(line, "ch_utilization:");
        if (at != nullptr && sscanf(at, "ch_utilization: %d", &percent) == 1)
            break;
    }
    if (percent >= 0 && percent <= 100)
        *utilization = static_cast<uint8_t>(percent);
    return 1;
}

void wlan_activate_links_rtk(const char *ifname, const config_param *param, kolt_link_type type) {
    activate(ifname, param, type, param->activate_pkts);
}

void wlan_activate_links_for_ap_rtk(const char *ifname, const config_param *param, kolt_link_type type) {
    activate(ifname, param, type, 1);
}

void wlan_delete_wds_entry_rtk(const char * /*ifname*/, const uint8_t * /*mac*/) {
    // This driver forgets a station's WDS entry by itself.
}

int wlan_get_util_adjustment_rtk(const char * /*ifname*/, uint8_t /*selector*/, uint8_t *adjustment,
                                 uintptr_t /*word*/) {
    *adjustment = 0;
    return 1;
}
