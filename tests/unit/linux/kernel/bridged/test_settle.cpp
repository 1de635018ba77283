// Bringing the kernel to what the tree says.
#include "bridged/settle.h"

#include "bridged/clients.h"
#include "linux/support/bridged_test.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>

using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

// In place of setting the flags of a bridge's port, which the kernel does not refuse at the moment that a test wants.
int asked_port_set(rtnl_socket &rtnl, uint32_t ifindex, const bridge_port_flags &flags) asm(
    "__wrap__Z15bridge_port_setR11rtnl_socketjRK17bridge_port_flags");
int real_port_set(rtnl_socket &rtnl, uint32_t ifindex,
                  const bridge_port_flags &flags) asm("__real__Z15bridge_port_setR11rtnl_socketjRK17bridge_port_flags");

namespace {
bool refuses = false;
}

int asked_port_set(rtnl_socket &rtnl, uint32_t ifindex, const bridge_port_flags &flags) {
    return refuses ? EBUSY : real_port_set(rtnl, ifindex, flags);
}

namespace {

class bridge_that_refuses {
public:
    bridge_that_refuses() {
        refuses = true;
    }
    ~bridge_that_refuses() {
        refuses = false;
    }
    bridge_that_refuses(const bridge_that_refuses &) = delete;
    bridge_that_refuses &operator=(const bridge_that_refuses &) = delete;
};

constexpr char TREE_FILE[] = "/run/kolt-bridged/tree.br0";
constexpr uint8_t UPWARD = KOLT_PORT_OPEN | KOLT_PORT_NEED_HA | KOLT_PORT_GUARDED;
constexpr kolt_port CARRYING = {.group = GROUP_UP, .flags = UPWARD, .admits = 3, .accepts = 3, .class_ = 0};
constexpr kolt_port BESIDE = {.group = GROUP_UP, .flags = UPWARD, .admits = 0, .accepts = 0, .class_ = 0};

class settle_test : public bridged_test {
protected:
    // An announcement of a client from elsewhere in the tree, as the bridge of the parent hears it.
    [[nodiscard]] bool hears_of(const mac_address &mac) const {
        for (std::string frame = wires_.end(FAST_LINK).receive(200); !frame.empty();
             frame = wires_.end(FAST_LINK).receive(200)) {
            if (frame.size() >= 17 && frame.compare(6, 6, std::string(mac.begin(), mac.end())) == 0 &&
                static_cast<uint8_t>(frame[16]) == 0xAF)
                return true;
        }
        return false;
    }
};

TEST_F(settle_test, PortOfWhichNothingIsKnownIsClosed) {
    for (const size_t place : {SLOW_LINK, FAST_LINK, CHILD_LINK}) {
        EXPECT_TRUE(kolt_programs::attached(port(place)));
        EXPECT_EQ(life_.word(port(place)).flags & KOLT_PORT_OPEN, 0);
    }
}

TEST_F(settle_test, LinksToTheParentAreOpenAndOneOfThemCarriesGroupFrames) {
    join();
    EXPECT_EQ(life_.word(port(FAST_LINK)), CARRYING);
    EXPECT_EQ(life_.port(port(FAST_LINK)).flags, SENDS_ALL);
    EXPECT_EQ(life_.word(port(SLOW_LINK)), BESIDE);
    EXPECT_EQ(life_.port(port(SLOW_LINK)).flags, SENDS_NOTHING);
}

TEST_F(settle_test, PortWithoutANodeBehindItIsForHosts) {
    join();
    const kolt_port word = life_.word(port(CHILD_LINK));
    EXPECT_EQ(word.flags, KOLT_PORT_OPEN | KOLT_PORT_GUARDED);
    EXPECT_EQ(word.group, GROUP_NONE);
    EXPECT_EQ(word.accepts, 3);
}

// Who asked for a group did so on another link, and is asked again only every two minutes.
TEST_F(settle_test, LinkThatBeginsToCarryGroupFramesCarriesThoseThatWereAskedForElsewhere) {
    constexpr mac_address GROUP = {0x01, 0, 0x5e, 1, 2, 3};
    const std::string settings = "/sys/class/net/br0/bridge/multicast_";
    std::ofstream(settings + "snooping") << 1;
    std::ofstream(settings + "query_response_interval") << 10; // hundredths of a second until answers are relied upon
    std::ofstream(settings + "querier") << 1;
    usleep(300000);
    join();
    wires_.end(HOSTS).send(ip_frame{.to = GROUP, .from = CLIENT}.bytes());
    bool arrived = false;
    for (std::string frame = wires_.end(FAST_LINK).receive(200); !frame.empty() && !arrived;
         frame = wires_.end(FAST_LINK).receive(200))
        arrived = frame.compare(0, GROUP.size(), std::string(GROUP.begin(), GROUP.end())) == 0;
    EXPECT_TRUE(arrived);
}

TEST_F(settle_test, NothingIsSetTwiceWhenNothingChanged) {
    join();
    EXPECT_THAT(life_.announced_ports(), Not(IsEmpty()));
    settle(&life_.node());
    life_.node().links.changes++;
    settle(&life_.node());
    EXPECT_THAT(life_.announced_ports(), IsEmpty());
}

TEST_F(settle_test, OnlyThePortsThatChangeAreSet) {
    join();
    (void)life_.announced_ports();
    const auto permit = [this](one_node &node) {
        node.pass(50);
        tree_port_wish(&node.state, port(SLOW_LINK), {.type = KOLT_LINK_2G, .group = PORT_NONRELAY, .permit = true},
                       node.now);
    };
    life_.settle_after(permit);
    EXPECT_EQ(life_.word(port(SLOW_LINK)).accepts, 3);
    EXPECT_EQ(life_.word(port(FAST_LINK)).accepts, 0);
    EXPECT_THAT(life_.announced_ports(), UnorderedElementsAre(port(SLOW_LINK), port(FAST_LINK)));
}

TEST_F(settle_test, AnotherLinkTakesOverFromOneThatIsLost) {
    join();
    ASSERT_TRUE(learns(CLIENT, FAST_LINK));
    lose(FAST_LINK);
    EXPECT_EQ(life_.word(port(FAST_LINK)).flags & KOLT_PORT_OPEN, 0);
    EXPECT_EQ(life_.port(port(FAST_LINK)).flags, SENDS_NOTHING);
    EXPECT_EQ(life_.word(port(SLOW_LINK)), CARRYING);
    EXPECT_EQ(life_.port(port(SLOW_LINK)).flags, SENDS_ALL);
    EXPECT_EQ(life_.entry(CLIENT).port, 0U) << "what was learnt there leads nowhere";
}

TEST_F(settle_test, ClientsAndStreamsOfALostLinkTakeTheNextBest) {
    join();
    ASSERT_EQ(clients_add(&life_.node(), CLIENT.data(), NOBODY.data(), "p1"), 0);
    wires_.end(HOSTS).send(ip_frame{}.bytes());
    ASSERT_TRUE(comes_true([this] { return life_->streams.count() == 1; }));
    lose(FAST_LINK);
    EXPECT_EQ(life_->programs.hd_find(CLIENT.data()), port(SLOW_LINK));
    EXPECT_EQ(life_.entry(CLIENT).port, port(SLOW_LINK));
    kolt_stream_record stream;
    ASSERT_EQ(life_->streams.read({&stream, 1}), 1U);
    EXPECT_EQ(stream.target, port(SLOW_LINK));
    find_again();
    EXPECT_EQ(life_->programs.hd_find(CLIENT.data()), port(FAST_LINK)) << "where it is wished";
}

TEST_F(settle_test, PlacedClientsAreTakenBackWhenTheParentIsLost) {
    join();
    ASSERT_EQ(clients_add(&life_.node(), CLIENT.data(), NOBODY.data(), "p1"), 0);
    life_.settle_after([](one_node &node) {
        for (puppet &one : node.puppets)
            one.talks = one.echoes = false;
        node.pass(500);
    });
    EXPECT_EQ(life_.node().links.parent, 0U);
    EXPECT_EQ(life_.node().client_count, 0U);
    EXPECT_EQ(life_->programs.hd_find(CLIENT.data()), 0U);
    EXPECT_EQ(life_.entry(CLIENT).port, 0U);
}

TEST_F(settle_test, NewParentHearsWhoIsBehindThisNode) {
    life_.settle_after([](one_node &node) { node.pass(500); });
    ASSERT_TRUE(learns(CLIENT, CHILD_LINK));
    join();
    EXPECT_FALSE(hears_of(CLIENT)) << "its port opens only when it has heard this node's hello";
    const uint64_t due = life_.node().announce_ms;
    EXPECT_THAT(due,
                testing::AllOf(testing::Gt(0U), testing::Le(node_now() + 2 * life_.node().links.timing.interval_ms)));
    life_.node().announce_ms = node_now();
    settle(&life_.node());
    EXPECT_TRUE(hears_of(CLIENT));
    settle(&life_.node());
    EXPECT_FALSE(hears_of(CLIENT)) << "once";
}

TEST_F(settle_test, PlaceInTheTreeIsKeptInAFile) {
    join();
    tree_record kept;
    tree_save(life_.node().links, &kept);
    EXPECT_EQ(memcmp(&kept, &life_.node().saved, sizeof kept), 0);
    EXPECT_EQ(access("/run/kolt-bridged/tree.br0", F_OK), 0);
}

TEST_F(settle_test, WhatTheBridgeDidNotTakeIsToldOnceAndTriedAgain) {
    clear_log();
    {
        const bridge_that_refuses all;
        join();
        settle(&life_.node());
    }
    EXPECT_EQ(life_.word(port(FAST_LINK)), CARRYING) << "the programs go by their own";
    EXPECT_EQ(life_.port(port(FAST_LINK)).flags, SENDS_NOTHING);
    EXPECT_EQ(std::ranges::count_if(logged_texts(),
                                    [](const std::string &text) { return text.find("p1") != std::string::npos; }),
              1);
    settle(&life_.node());
    EXPECT_EQ(life_.port(port(FAST_LINK)).flags, SENDS_ALL);
    (void)life_.announced_ports();
    settle(&life_.node());
    EXPECT_THAT(life_.announced_ports(), IsEmpty());
}

TEST_F(settle_test, PortThatTheBridgeDidNotCloseIsClosedLater) {
    join();
    {
        const bridge_that_refuses all;
        lose(FAST_LINK);
    }
    EXPECT_EQ(life_.word(port(FAST_LINK)).flags & KOLT_PORT_OPEN, 0);
    EXPECT_EQ(life_.port(port(FAST_LINK)).flags, SENDS_ALL);
    settle(&life_.node());
    EXPECT_EQ(life_.port(port(FAST_LINK)).flags, SENDS_NOTHING);
}

// The next life would go on from an earlier place in the tree.
TEST_F(settle_test, NothingIsOpenedOrToldWhileTheFileSaysSomethingElse) {
    std::filesystem::remove(TREE_FILE);
    std::filesystem::create_directories(std::string(TREE_FILE) + "/in the way");
    join();
    EXPECT_EQ(life_.word(port(FAST_LINK)).flags & KOLT_PORT_OPEN, 0);
    (void)wires_.end(FAST_LINK).count_arrived();
    settle(&life_.node());
    EXPECT_EQ(wires_.end(FAST_LINK).count_arrived(), 0U);
    std::filesystem::remove_all(TREE_FILE);
    life_.node().save_again_ms = 0; // a second later
    settle(&life_.node());
    EXPECT_EQ(life_.word(port(FAST_LINK)), CARRYING);
    EXPECT_TRUE(is_kept("tree.br0"));
}

TEST_F(settle_test, NodeWithoutRoomForItsFileGoesOnWithNone) {
    join();
    std::filesystem::create_directories(std::string(TREE_FILE) + ".kolt-bridged/in the way");
    lose(FAST_LINK);
    EXPECT_EQ(life_.word(port(SLOW_LINK)), CARRYING);
    EXPECT_FALSE(is_kept("tree.br0")) << "what it says holds no more";
}

TEST_F(settle_test, BridgeThatIsNotThereIsLeftAlone) {
    life_.node().ifindex = 0;
    join();
    EXPECT_EQ(life_.word(port(FAST_LINK)).flags & KOLT_PORT_OPEN, 0);
    EXPECT_THAT(life_.announced_ports(), IsEmpty());
}

TEST_F(settle_test, PortThatHasGoneIsNotSet) {
    settle_port(&life_.node(), {.ifindex = port(HOSTS) + 100, .word = {.flags = PORT_OPEN}, .flooding = {}});
    EXPECT_EQ(life_.word(port(HOSTS) + 100), kolt_port{});
}

} // namespace
