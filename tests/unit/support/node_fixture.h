// A node: its configuration, real interfaces on the fake platform's bridges, its runtime files.
#pragma once

#include "core/config.h"
#include "support/fixture.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <net/if.h>
#include <string>

constexpr const char *LINK_FILES[KOLT_LINK_COUNT] = {"/tmp/eth_runtime_info", "/tmp/plc_runtime_info",
                                                     "/tmp/wifi_runtime_info.2g", "/tmp/wifi_runtime_info.5g",
                                                     "/tmp/wifi_runtime_info.5g2"};

inline void set_name(char (&field)[KOLT_NAME_SIZE], const std::string &name) {
    memset(field, 0, sizeof field);
    memcpy(field, name.data(), std::min(name.size(), sizeof field));
}

class node_fixture : public fixture {
protected:
    node_fixture() {
        kolt_list_init(&config_.ev.subscribers);
        kolt_list_init(&config_.modules);
        for (const char *file : LINK_FILES)
            remove_file(file);
        remove_file("/tmp/work_mode");
        remove_file("/etc/config/tolmux");
    }

    // A real interface, which no configuration knows yet.
    test_interface &make_interface(const std::string &name) {
        const auto &[place, added] = interfaces_.emplace(name, test_interface(name));
        EXPECT_TRUE(added) << name;
        return place->second;
    }
    void drop_interface(const std::string &name) {
        interfaces_.erase(name);
    }
    static uint32_t index_of(const std::string &name) {
        return if_nametoindex(name.c_str());
    }

    // Configures a bridge; the kernel's bridge knows an active one.
    config_bridge &configure_bridge(const std::string &name, uint32_t flags, bool active) {
        config_bridge &bridge = config_.bridges[config_.bridge_num++];
        set_name(bridge.name, name);
        bridge.flags = flags;
        if (active)
            platform.bridges[name];
        return bridge;
    }
    // Configures an interface and makes it a port of a bridge.
    config_interface &configure_port(const std::string &name, kolt_link_type type, uint8_t relay,
                                     const std::string &bridge) {
        config_interface &port = config_.interfaces[config_.interface_num++];
        set_name(port.name, name);
        port.type = type;
        port.relay = relay;
        platform.bridges[bridge].push_back(make_interface(name).index());
        return port;
    }

    static void set_work_mode(const std::string &mode) {
        write_file("/tmp/work_mode", R"({"work_mode": ")" + mode + R"("})");
    }
    static void set_link(kolt_link_type type, bool up) {
        write_file(LINK_FILES[type], up ? R"({"status": 1})" : R"({"status": 0})");
    }

    config config_;

private:
    std::map<std::string, test_interface> interfaces_;
};
