// A node for the module to act on: its configuration, its real interfaces on the fake platform's bridges, its runtime
// files and UCI options, and the recording driver table, whose calls stand among the bridge's in platform.calls.
#pragma once

#include "loop_avoidance/configure.h"
#include "loop_avoidance/module.h"
#include "loop_avoidance/wds.h"
#include "probes/node_state.h"
#include "support/node_fixture.h"
#include "support/recording_wlan.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

using call_list = lines;

constexpr auto INVALID_MODE = static_cast<kolt_work_mode>(7);

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

class Node : public node_fixture {
protected:
    // Configures a bridge; the kernel knows it unless told otherwise.
    void add_bridge(const std::string &name, uint32_t flags = CONFIG_LOOP_AVOIDANCE, bool active = true) {
        configure_bridge(name, flags, active);
    }

    // Configures an interface and makes it a port of a bridge.
    config_interface &add_port(const std::string &name, kolt_link_type type, uint8_t relay = 1,
                               const std::string &bridge = "br-lan") {
        return configure_port(name, type, relay, bridge);
    }

    void add_couple(const std::string &lan, const std::string &guest) {
        config_couple &couple = config_.couples[config_.couple_num++];
        set_name(couple.lan, lan);
        set_name(couple.guest, guest);
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

    const installed_table table_{&recording::table};

private:
    std::map<std::string, std::string> options_;
};

// A node whose links are all up, and whose Ethernet and power-line options are off.
class Configure : public Node {
protected:
    void SetUp() override {
        Node::SetUp();
        set_option("TrafficEthActive", "0");
        set_option("TrafficPlcRoot", "0");
        for (const kolt_link_type type : KOLT_LINKS)
            set_link(type, true);
    }
    // Programs every bridge for a mode; what was called.
    call_list configure(kolt_work_mode mode) {
        platform.calls.clear();
        loop_avoidance_configure_bridge_with_mode(&config_, mode);
        EXPECT_EQ(platform.live_buffers, 0);
        return programming();
    }
};
