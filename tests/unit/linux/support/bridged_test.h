// One extender for a test: two links towards its parent, one towards children, and a port for hosts.
#pragma once

#include "bridged/ports.h"
#include "linux/support/bridged_life.h"
#include "linux/support/frames.h"
#include "linux/support/wires.h"

#include <gtest/gtest.h>

#include <string>
#include <unistd.h>

// Ports of the bridge br0, by their number: "p0" and so on.
enum : size_t { SLOW_LINK, FAST_LINK, CHILD_LINK, HOSTS, PORTS };

constexpr kept_interface SLOW = {.name = "p0", .type = KOLT_LINK_2G, .needha = 1};
constexpr kept_interface FAST = {.name = "p1", .type = KOLT_LINK_5G, .needha = 1};
constexpr kept_interface DOWNWARD = {.name = "p2", .type = KOLT_LINK_5G, .relay = 1};
constexpr kept_interface WIRED = {.name = "p3", .type = KOLT_LINK_ETHERNET, .relay = 1, .path = 0};

constexpr mac_address SECOND = {0x02, 0, 0, 0, 0, 0xc2};
constexpr mac_address NOBODY{};
constexpr bridge_port_flags SENDS_ALL = {true, true, true, true, MCAST_ROUTER_TEMPORARY};
constexpr bridge_port_flags SENDS_NOTHING = {false, false, false, false, MCAST_ROUTER_NEVER};

constexpr bridge_port_flags AS_FOUND = {true, false, true, false, MCAST_ROUTER_ALWAYS};

// Whether the run folder has the file.
inline bool is_kept(const char *file) {
    return access((std::string(RUN_FOLDER) + "/" + file).c_str(), F_OK) == 0;
}

class bridged_test : public testing::Test {
protected:
    bridged_test() {
        ports_look(life_.get());
        (void)life_.announced_ports();
    }

    [[nodiscard]] uint32_t port(size_t place) const {
        return wires_.port(place);
    }
    // Both links lead to the parent then, and the fast one carries group frames.
    void join() {
        life_.settle_after([this](one_node &node) {
            node.join({.ifindex = port(FAST_LINK)});
            node.puppets.push_back({.ifindex = port(SLOW_LINK), .port = 51});
            node.pass(500);
        });
    }
    // Nothing comes back any more from what is behind the link.
    void lose(size_t place) {
        life_.settle_after([this, place](one_node &node) {
            for (puppet &one : node.puppets)
                one.talks = one.echoes = one.ifindex != port(place);
            node.pass(500);
        });
    }
    // What was lost is back.
    void find_again() {
        life_.settle_after([](one_node &node) {
            for (puppet &one : node.puppets)
                one.talks = one.echoes = true;
            node.pass(1000);
        });
    }
    // The bridge has heard the MAC on the port.
    [[nodiscard]] bool learns(const mac_address &mac, size_t place) {
        wires_.end(place).send(ethernet_frame(SERVER, mac, 0x9000));
        return comes_true([&] { return life_.entry(mac).port == port(place); });
    }

    bridged_wires wires_{PORTS};
    bridged_life life_{{SLOW, FAST, DOWNWARD, WIRED}};
};
