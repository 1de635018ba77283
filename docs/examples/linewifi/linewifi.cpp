// A driver to copy from. It tells of a radio in one text file, /run/linewifi/<interface>:
//
//     busy 37
//     station 02:10:00:00:00:12 tx 866 rx 780 rssi 55 idle 12
//
// What it can do is the table at the end; the operations that it leaves empty do nothing.
#include "adaptors/wlan_platform.h"
#include "core/file.h"
#include "core/log.h"
#include "probes/link_activation.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>

namespace {

constexpr char FOLDER[] = "/run/linewifi";
constexpr size_t LINE_SIZE = 128;
constexpr uint8_t QUIET_CHANNEL = 50; // percent

// Everything that the driver says about a radio.
struct radio {
    wlan_link stations[WLAN_MAX_LINKS];
    uint8_t count = 0;
    int busy = -1; // percent; less than 0 when it was not told
};

bool parse_station(const char *line, wlan_link *station) {
    char mac[18];
    unsigned int tx = 0;
    unsigned int rx = 0;
    unsigned int rssi = 0;
    unsigned int idle = 0;
    if (sscanf(line, "station %17s tx %9u rx %9u rssi %9u idle %9u", mac, &tx, &rx, &rssi, &idle) != 5 ||
        std::max({tx, rx, idle}) > UINT16_MAX || rssi > UINT8_MAX)
        return false;
    station->tx_rate = static_cast<uint16_t>(tx);
    station->rx_rate = static_cast<uint16_t>(rx);
    station->rssi = static_cast<uint8_t>(rssi);
    station->activity = static_cast<uint16_t>(idle);
    return kolt_str_to_mac(mac, station->mac, 1) == 1;
}

// Reads the file of a radio; false when there is none.
bool read_radio(const char *ifname, radio *found) {
    char path[64];
    (void)snprintf(path, sizeof path, "%s/%.16s", FOLDER, ifname);
    const file_ptr file(fopen(path, "re"));
    if (!file)
        return false;
    char line[LINE_SIZE];
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        if (found->count < WLAN_MAX_LINKS && parse_station(line, &found->stations[found->count]))
            found->count++;
        (void)sscanf(line, "busy %9d", &found->busy); // what is no such line leaves it as it is
    }
    return true;
}

int get_uplink_rate(const char *ifname, wlan_uplink_rate *rate, uint8_t *rssi, kolt_link_type /*type*/) {
    radio found;
    if (!read_radio(ifname, &found) || found.count == 0)
        return 0; // not connected
    const wlan_link &parent = found.stations[0];
    rate->tx_rate = parent.tx_rate;
    rate->rx_rate = parent.rx_rate;
    memcpy(rate->mac, parent.mac, sizeof rate->mac);
    *rssi = parent.rssi;
    return 1;
}

int get_channel_utilization(const char *ifname, uint8_t *utilization, kolt_link_type /*type*/, uint32_t /*one*/) {
    radio found;
    if (!read_radio(ifname, &found) || found.busy < 0 || found.busy > 100)
        return 0;
    *utilization = static_cast<uint8_t>(found.busy);
    return 1;
}

void wake_idle_stations(const char *ifname, uint16_t idle_threshold, uint16_t frames) {
    radio found;
    (void)read_radio(ifname, &found); // without it there are no stations
    for (const wlan_link &station : std::span(found.stations, found.count)) {
        for (uint16_t sent = 0; station.activity > idle_threshold && sent < frames; sent++)
            (void)kolt_activate_link(ifname, station.mac); // it logs its failures
    }
}

void activate_links(const char *ifname, const config_param *param, kolt_link_type /*type*/) {
    wake_idle_stations(ifname, param->idle_threshold, param->activate_pkts);
}

void activate_links_for_ap(const char *ifname, const config_param *param, kolt_link_type /*type*/) {
    wake_idle_stations(ifname, param->idle_threshold, 1);
}

int is_5g_low_noise(uint16_t /*rate*/, uint8_t utilization, uintptr_t /*word*/) {
    return utilization <= QUIET_CHANNEL ? 1 : 0;
}

// The fast path of this driver forgets everything when it is told so.
int flush_all_fcache_flow() {
    char path[64];
    (void)snprintf(path, sizeof path, "%s/flush", FOLDER);
    const file_ptr file(fopen(path, "we"));
    if (!file || fputs("all\n", file.get()) < 0) {
        KOLT_ERROR("linewifi: cannot flush");
        return 0;
    }
    return 1;
}

constexpr wlan_platform LINEWIFI = {
    .get_uplink_rate = get_uplink_rate,
    .get_channel_utilization = get_channel_utilization,
    .activate_links = activate_links,
    .activate_links_for_ap = activate_links_for_ap,
    .delete_wds_entry = nullptr,
    .get_util_adjustment = nullptr,
    .is_5g_low_noise = is_5g_low_noise,
    .get_links = nullptr,
    .reserved = nullptr,
    .flush_all_fcache_flow = flush_all_fcache_flow,
    .flush_fcache_flow_entry = nullptr,
    .update_fcache_flow_list = nullptr,
    .get_maximal_ha_entries_from_fcache = nullptr,
    .flush_fc_flow_by_ha = nullptr,
    .flush_fc_flow_by_mac = nullptr,
    .get_if_stat_from_fcache = nullptr,
    .cal_hash_and_set_ha = nullptr,
    .configure_fc_mode = nullptr,
};

} // namespace

const wlan_platform *wlan_platform_ops = &LINEWIFI;
