// Two processes, one after the other, on the bridge of one extender.
#pragma once

#include "bridged/clients.h"
#include "linux/support/bridged_test.h"

#include <functional>
#include <memory>
#include <vector>

// What a process finds that another one has left, and puts back in the end.
class next_life_test : public testing::Test {
protected:
    [[nodiscard]] uint32_t port(size_t place) const {
        return wires_.port(place);
    }
    std::unique_ptr<bridged_life> begin() {
        auto life = std::make_unique<bridged_life>(std::vector<kept_interface>{SLOW, FAST, DOWNWARD});
        ports_look(life->get());
        return life;
    }
    // A process that has joined a parent by both links and done some more, until it was killed.
    void first_life(const std::function<void(bridged_life &)> &more = [](bridged_life &) {}) {
        const auto life = begin();
        life->settle_after([this](one_node &node) {
            node.join({.ifindex = port(FAST_LINK)});
            node.puppets.push_back({.ifindex = port(SLOW_LINK), .port = 51});
            node.pass(200);
        });
        EXPECT_EQ(life->word(port(FAST_LINK)).accepts, 3);
        more(*life);
    }
    static void place(bridged_life &life) {
        EXPECT_EQ(clients_add(&life.node(), CLIENT.data(), life.node().mac.data(), "p1"), 0);
    }
    // Where a client is, as both tables of the kernel must say.
    static uint32_t place_of(bridged_life &life, const mac_address &mac = CLIENT) {
        const fdb_record entry = life.entry(mac);
        EXPECT_EQ(entry.port, life->programs.hd_find(mac.data()));
        EXPECT_EQ(entry.is_static && entry.sticky, entry.port != 0);
        return entry.port;
    }
    bridged_wires wires_{PORTS};
};
