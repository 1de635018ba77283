// A node for the module to act on: its configuration, its real interfaces on the fake platform's bridges, its runtime
// files and UCI options, and the recording driver table, whose calls stand among the bridge's in platform.calls.
#pragma once

#include "core/config.h"
#include "core/log.h"
#include "loop_avoidance/loop_avoidance.h"
#include "probes/node_state.h"
#include "support/fake_platform.h"
#include "support/log_capture.h"
#include "support/recording_wlan.h"
#include "support/sandbox.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

constexpr const char *LINK_FILE[] = {"/tmp/eth_runtime_info", "/tmp/plc_runtime_info", "/tmp/wifi_runtime_info.2g",
                                     "/tmp/wifi_runtime_info.5g", "/tmp/wifi_runtime_info.5g2"};

using call_list = std::vector<std::string>;

inline call_list operator+(call_list first, const call_list &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

inline void set_name(char (&field)[CONFIG_NAME_SIZE], const std::string &name) {
    memcpy(field, name.data(), std::min(name.size(), sizeof field));
}

// The calls that program one port, in their order.
struct port_calls {
    const char *bridge;
    const char *name;
    int compat_group = 0;
    int relay = 0;
    int broadcast = 0;
    int bcast_class = 0;
    int path = 0;
    int needha = 0;
    int type = 0;

    operator call_list() const {
        const std::string port = std::string("(") + bridge + ", " + name + ", ";
        const auto value = [](int number) { return std::to_string(number) + ")"; };
        return {"bridgeSetIFCompat" + port + value(compat_group),
                "bridgeSetIFGroup" + port + std::to_string(relay) + ", " + value(relay),
                "bridgeSetIFBroadcast" + port + value(broadcast),
                "bridgeSetIFClass" + port + value(bcast_class),
                "bridgeSetIFPath" + port + value(path),
                "bridgeSetNeedha" + port + value(needha),
                "bridgeSetIFType" + port + value(type)};
    }
};

class Node : public testing::Test {
protected:
    void SetUp() override {
        platform = fake_platform{};
        clear_log();
        log_level = KOLT_LOG_INFO;
        for (const char *file : LINK_FILE)
            remove_file(file);
        remove_file("/tmp/work_mode");
        remove_file("/etc/config/tolmux");
        kolt_list_init(&config_.ev.subscribers);
    }

    // Configures a bridge; the kernel knows it unless told otherwise.
    void add_bridge(const std::string &name, uint32_t flags = CONFIG_LOOP_AVOIDANCE, bool active = true) {
        config_bridge &bridge = config_.bridges[config_.bridge_num++];
        set_name(bridge.name, name);
        bridge.flags = flags;
        if (active)
            platform.bridges[name];
    }

    // Configures an interface and makes it a port of a bridge.
    config_interface &add_port(const std::string &name, uint32_t type, uint8_t relay = 1,
                               const std::string &bridge = "br-lan") {
        config_interface &port = config_.interfaces[config_.interface_num++];
        set_name(port.name, name);
        port.type = type;
        port.relay = relay;
        interfaces_.emplace_back(name);
        platform.bridges[bridge].push_back(interfaces_.back().index());
        return port;
    }

    void add_couple(const std::string &lan, const std::string &guest) {
        config_couple &couple = config_.couples[config_.couple_num++];
        set_name(couple.lan, lan);
        set_name(couple.guest, guest);
    }

    static void set_work_mode(const std::string &mode) {
        write_file("/tmp/work_mode", R"({"work_mode": ")" + mode + R"("})");
    }

    static void set_link(uint32_t type, bool up) {
        write_file(LINK_FILE[type], up ? R"({"status": 1})" : R"({"status": 0})");
    }

    void set_option(const std::string &option, const std::string &value) {
        options_[option] = value;
        std::string text = "config tolmux 'tolmux'\n";
        for (const auto &[name, setting] : options_)
            text += "\toption " + name + " '" + setting + "'\n";
        write_file("/etc/config/tolmux", text);
    }

    // The Ethernet ports with a mesh neighbour, as a bit mask over the ports of the device.
    void set_neighbours(const std::string &mask, const std::vector<std::string> &eths) {
        set_option("eth_HasNeigh", mask);
        platform.eths = eths;
        platform.eth_port_num = static_cast<int>(eths.size());
    }

    // What was called, but for the queries of the bridge and the Ethernet profile.
    static call_list programming() {
        call_list calls;
        for (const std::string &call : platform.programming()) {
            if (call.rfind("uci_get_", 0) != 0)
                calls.push_back(call);
        }
        return calls;
    }

    static size_t count_calls(const std::string &call) {
        return static_cast<size_t>(std::count(platform.calls.begin(), platform.calls.end(), call));
    }

    config config_;
    const installed_table table_{&recording::table};

private:
    std::deque<test_interface> interfaces_;
    std::map<std::string, std::string> options_;
};

// A node whose links are all up, and whose Ethernet and power-line options are off.
class Configure : public Node {
protected:
    void SetUp() override {
        Node::SetUp();
        set_option("TrafficEthActive", "0");
        set_option("TrafficPlcRoot", "0");
        for (uint32_t type = 0; type < 5; type++)
            set_link(type, true);
    }
    // Programs every bridge for a mode; what was called.
    call_list configure(uint32_t mode) {
        platform.calls.clear();
        loop_avoidance_configure_bridge_with_mode(&config_, mode);
        EXPECT_EQ(platform.live_buffers, 0);
        return programming();
    }
};
