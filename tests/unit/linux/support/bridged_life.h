// kolt-bridged without its main function: the state of one process, on real bridges in the test's namespace. A test
// plays what its neighbours say on a tree of its own, and hands that over.
#pragma once

#include "bridged/node.h"
#include "linux/decide/support_node.h"

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

constexpr char RUN_FOLDER[] = "/run/kolt-bridged";
constexpr char PIN_FOLDER[] = "/tmp/pins";

// An interface of the configuration.
struct kept_interface {
    const char *name;
    kolt_link_type type = KOLT_LINK_5G;
    uint8_t relay = 0; // 1: towards children or hosts
    uint8_t path = 1;
    uint8_t class_ = 0;
    uint8_t needha = 0;
};

// It ends as by a signal: what it has done to the kernel stays.
class bridged_life {
public:
    bridged_life(const std::vector<kept_interface> &interfaces, const std::vector<const char *> &bridges = {"br0"});
    ~bridged_life();
    bridged_life(const bridged_life &) = delete;
    bridged_life &operator=(const bridged_life &) = delete;

    bridged *operator->() {
        return self_.get();
    }
    bridged *get() {
        return self_.get();
    }
    bridge_node &node(size_t place = 0) {
        return self_->bridges.at(place);
    }
    [[nodiscard]] kolt_port word(uint32_t ifindex) const {
        return self_->programs.port(ifindex);
    }
    // What the kernel says of a port.
    bridge_port port(uint32_t ifindex);
    // Where the bridge has a MAC; without a port when it has it nowhere.
    fdb_record entry(const std::array<uint8_t, 6> &mac, size_t place = 0);

    // What a tree with the ports of the bridge goes through. Its time runs ahead of the node's own, for which it stands
    // still from then on.
    void live(const std::function<void(one_node &)> &events, size_t place = 0);
    // The same with settling.
    void settle_after(const std::function<void(one_node &)> &events, size_t place = 0);

    // Takes in what the kernel has announced, until something holds that must come true within a second.
    bool hear_until(const std::function<bool()> &wanted);
    // The bridge ports whose settings the kernel has announced since it was last asked.
    std::set<uint32_t> announced_ports();

private:
    std::unique_ptr<bridged> self_;
    kernel_monitor announced_;
    std::vector<std::unique_ptr<one_node>> plays_;
};

// Waits until something holds that must come true within a second.
bool comes_true(const std::function<bool()> &wanted);
