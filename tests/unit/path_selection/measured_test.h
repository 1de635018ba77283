// The path table, the histories and the radios of a period under test.
#pragma once

#include "path_selection/context.h"
#include "path_selection/interface_cache.h"
#include "support/node_fixture.h"
#include "support/recording_wlan.h"

#include <algorithm>
#include <map>
#include <string>
#include <syslog.h>
#include <vector>

inline constexpr auto case_name = [](const auto &row) { return std::string(row.param.name); };

// What the driver tells of one radio. Without a utilisation the driver succeeds and stores nothing.
struct radio {
    uint16_t tx = 300;
    uint16_t rx = 300;
    uint8_t rssi = 40;
    int util = 30;
    bool has_rate = true;
    bool has_util = true;
};
inline constexpr int STORES_NOTHING = -1;

inline std::map<std::string, radio> radios; // by interface name

// A driver table whose rates and utilisation are those of `radios`; it records every call.
inline const wlan_platform radio_table = [] {
    wlan_platform table = recording::table;
    table.get_uplink_rate = [](const char *ifname, wlan_uplink_rate *rate, uint8_t *rssi, kolt_link_type type) {
        (void)recording::call("get_uplink_rate", ifname, type);
        const radio &told = radios[ifname];
        if (!told.has_rate)
            return 0;
        rate->tx_rate = told.tx;
        rate->rx_rate = told.rx;
        *rssi = told.rssi;
        return 1;
    };
    table.get_channel_utilization = [](const char *ifname, uint8_t *utilization, kolt_link_type type, uint32_t one) {
        (void)recording::call("get_channel_utilization", ifname, type, one);
        const radio &told = radios[ifname];
        if (told.has_util && told.util != STORES_NOTHING)
            *utilization = static_cast<uint8_t>(told.util);
        return told.has_util ? 1 : 0;
    };
    return table;
}();

class MeasuredPaths : public node_fixture {
protected:
    void SetUp() override {
        radios.clear();
        path_selection_ctx = path_selection_context{};
        path_selection_ctx.configuration = &config_;
        path_selection_ctx.hd_sample_ring.fill(PATH_NONE);
        config_.param.period = 1000;
        config_.param.high_threshold = 70;
        config_.param.delta_threshold = 10;
        config_.param.wifi_rate_check = 1;
        config_.param.rate_abnormal_threshold = 13;
        config_.param.adjusted_streams = 1;
        config_.param.adjusted_ratio = 50;
    }

    // Makes a row present.
    ps_path &add_row(kolt_link_type type, const std::string &name, uint8_t util = 0, uint16_t rate = 0) {
        ps_path &row = paths_.at(type);
        kolt_copy_name(row.name, name.c_str());
        row.path = type;
        row.util = util;
        row.rate = rate;
        return row;
    }

    static std::string name_of(const ps_path &row) {
        return kolt_name_text(row.name).text;
    }

    ps_path_table paths_{};
};
