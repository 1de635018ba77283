// Streams on two paths: wlan0.1 is overloaded, wlan1.1 is the best one.
#pragma once

#include "path_selection/ha_balancing.h"
#include "path_selection/measured_test.h"
#include "path_selection/stream_move.h"

#include <optional>

constexpr uint32_t HOT_PORT = 60;
constexpr uint32_t BEST_PORT = 61;
constexpr uint32_t COOL_PORT = 62;

class HaStreams : public MeasuredPaths {
protected:
    void SetUp() override {
        MeasuredPaths::SetUp();
        remove_file("/tmp/work_mode");
        add_row(KOLT_LINK_2G, "wlan0.1", 90, 100);
        add_row(KOLT_LINK_5G_2, "wlan2.1", 70, 100);
        best_.quota = 10000;
        clients_.resize(2);
    }

    // A stream that takes `quota` hundredths of a percent of the best path, whose rate is 10000: `quota` units of 64
    // bytes a millisecond in a period of 1000 of them.
    static ha_entry stream(uint32_t port, uint32_t quota) {
        ha_entry entry;
        const uint8_t source[] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
        const uint8_t target[] = {0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB};
        std::copy(std::begin(source), std::end(source), entry.src_addr);
        std::copy(std::begin(target), std::end(target), entry.dst_addr);
        entry.port = port;
        entry.num_bytes = quota * 64 * 1000;
        entry.hash = 200;
        entry.src_port = 5000;
        entry.dst_port = 80;
        entry.protocol = 6;
        entry.stream_kind = 3;
        entry.carried_value = 4000000000U;
        return entry;
    }

    void set_streams(const std::vector<ha_entry> &streams, size_t client = 0) {
        std::fill(std::begin(clients_[client].ha), std::end(clients_[client].ha), ha_entry{});
        std::copy(streams.begin(), streams.end(), clients_[client].ha);
    }

    balancing at() {
        return {.configuration = &config_,
                .bridge = "br-lan",
                .interfaces = &interfaces_,
                .paths = &paths_,
                .best = &best_,
                .budget = &budget_};
    }

    // How many streams the library was told to move.
    static size_t moved() {
        return static_cast<size_t>(std::count_if(platform.calls.begin(), platform.calls.end(), [](const auto &call) {
            return call.rfind("bridgeSetHATableEntries(", 0) == 0;
        }));
    }

    ps_path &best_ = add_row(KOLT_LINK_5G, "wlan1.1", 20, 10000);
    std::vector<kolt_client> clients_;
    interface_cache interfaces_;
    kolt_wait_budget budget_{.left_ms = 2000};
    std::optional<test_interface> hot_{std::in_place, "wlan0.1", HOT_PORT};
    test_interface target_{"wlan1.1", BEST_PORT};
    test_interface cool_{"wlan2.1", COOL_PORT};
};
