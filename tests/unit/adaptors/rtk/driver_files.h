// The Realtek driver's text files of a test, and the shell pipe through which the code reads them.
#pragma once

#include "adaptors/rtk/rtk_stations.h"
#include "adaptors/rtk/rtk_wlan.h"
#include "support/fake_platform.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <syslog.h>
#include <vector>

// The commands that were started since the test began.
extern std::vector<std::string> started_commands;

// One station as the driver tells it, a line a key; an empty line is left out.
struct station_block {
    std::string hwaddr = "hwaddr: 001122334455";
    std::string state = "state: 1";
    std::string tx = "current_tx_rate: VHT 866";
    std::string rx = "current_rx_rate: HT 300";
    std::string rssi = "rssi: 40";

    [[nodiscard]] std::string text() const {
        std::string all = "stat_info...\n";
        for (const std::string &line : {hwaddr, state, tx, rx, rssi}) {
            if (!line.empty())
                all += "    " + line + "\n";
        }
        return all;
    }
};

inline const char ONE_STATION[] = "00:11:22:33:44:55 tx 866 rx 300 rssi 40"; // what an unchanged block reads as

inline std::string header(const std::string &count) {
    return "-- STA info table -- (active: " + count + ")\n";
}

inline constexpr auto row_name = [](const auto &row) { return std::string(row.param.name); };

class DriverFiles : public testing::Test {
protected:
    void SetUp() override {
        platform = fake_platform{};
        clear_log();
        started_commands.clear();
        remove_file("/proc/net/rtk_wifi6");
        remove_file("/proc/wlan0");
    }

    // Writes a file of the 2.4 GHz radio wlan0.
    static void write_stations(const std::string &text) {
        write_file("/proc/wlan0/sta_info", text);
    }
    static void write_stats(const std::string &text) {
        write_file("/proc/wlan0/stats", text);
    }

    static std::string describe(const wlan_link &link) {
        char text[96];
        snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X tx %d rx %d rssi %d", link.mac[0], link.mac[1],
                 link.mac[2], link.mac[3], link.mac[4], link.mac[5], link.tx_rate, link.rx_rate, link.rssi);
        return text;
    }

    // Reads a table and tells its stations. What lies behind the array's room must stay as it is.
    static std::vector<std::string> read_stations(const char *ifname = "wlan0", kolt_link_type type = KOLT_LINK_2G) {
        wlan_link links[WLAN_MAX_LINKS + 1];
        links[WLAN_MAX_LINKS].tx_rate = 4711;
        const uint8_t count = wlan_get_links_rtk(ifname, links, type);
        EXPECT_EQ(links[WLAN_MAX_LINKS].tx_rate, 4711);
        std::vector<std::string> stations;
        for (uint8_t i = 0; i < count && i < WLAN_MAX_LINKS; i++)
            stations.push_back(describe(links[i]));
        EXPECT_EQ(stations.size(), count);
        return stations;
    }

    // Writes a table that announces five stations, and reads it.
    static std::vector<std::string> stations_in(const std::string &body) {
        write_stations(header("5") + body);
        return read_stations();
    }
};
