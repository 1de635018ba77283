// A bridge "br-lan" with a client port "eth0" and the tuning of a common node, for the body of a period.
#pragma once

#include "path_selection/paths_test.h"
#include "path_selection/uplink.h"
#include "probes/ports.h"

class Uplink : public Paths {
protected:
    void SetUp() override {
        Paths::SetUp();
        config_param &param = config_.param;
        param.period = 5000;
        param.wlan_enable = 1;
        param.high_threshold = 70;
        param.delta_threshold = 10;
        param.adjusted_streams = 1;
        param.adjusted_ratio = 50;
        param.wifi_rate_check = 1;
        param.rate_abnormal_threshold = 13;
        add_bridge("br-lan");
        add_port("eth0", KOLT_LINK_ETHERNET, 0, 0);
        log_level = KOLT_LOG_DEBUG;
    }

    // One period of every bridge; calls and log are its own.
    void run() {
        clear_log();
        platform.calls.clear();
        run_period();
    }

    // The body of a period for a list of clients that no bridge table could give.
    void run_with_clients(std::vector<kolt_client> clients) {
        kolt_client_list list{.count = static_cast<uint8_t>(clients.size()), .clients = clients.data()};
        kolt_port_list ports;
        (void)kolt_get_path_ports(&config_, "br-lan", &ports);
        const kolt_interface_list paths = ports.list();
        kolt_stream_ranking ranking;
        clear_log();
        platform.calls.clear();
        kolt_wait_budget budget{.left_ms = 2000};
        path_selection_update_uplink_paths(&config_, "br-lan", &paths, &paths, &list, &ranking, &budget);
    }
    static kolt_client make_client(uint8_t number, uint32_t port, uint8_t relay = 0) {
        kolt_client client;
        std::ranges::copy(numbered_mac(number), client.mac);
        client.port = port;
        client.relay = relay;
        client.hd_port = KOLT_NO_HD_PORT;
        return client;
    }

    // What the operation itself logged, and the lines it consists of.
    static lines texts() {
        return logged_texts("path_selection_update_uplink_paths");
    }
    static std::string preference(uint32_t backhaul, uint32_t prefered, int is_prefered) {
        return "Debug: backhual: " + std::to_string(backhaul) + ", prefered: " + std::to_string(prefered) +
               ", is_prefered: " + std::to_string(is_prefered);
    }
    static std::string client_line(uint8_t number, const char *port = "eth0", const char *relay = "norelay") {
        return "Debug: client: " + text_of_mac(number) + ", ifname:" + port + ", relay:" + relay;
    }
    static std::string choice(const char *hd, const char *best) {
        return std::string("Debug: hd_path ") + hd + ", best path " + best;
    }

    static lines placements() {
        return calls_of("bridgeAddHDTableEntries");
    }
    static std::string placement(uint8_t client, const std::string &name, const char *bridge = "br-lan",
                                 uint8_t bridge_number = 200) {
        return std::string("bridgeAddHDTableEntries(") + bridge + ", " + text_of_mac(client) + ", " +
               text_of_mac(bridge_number) + ", " + name + ", " + name + ", 0)";
    }
};
