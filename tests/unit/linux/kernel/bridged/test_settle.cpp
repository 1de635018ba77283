// Bringing the kernel to what the tree says.
#include "bridged/settle.h"

#include "bridged/clients.h"
#include "linux/support/bridged_test.h"

#include <gmock/gmock.h>

using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

namespace {

constexpr bridge_port_flags SENDS_ALL = {};
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
    EXPECT_TRUE(hears_of(CLIENT));
}

TEST_F(settle_test, PlaceInTheTreeIsKeptInAFile) {
    join();
    tree_record kept;
    tree_save(life_.node().links, &kept);
    EXPECT_EQ(memcmp(&kept, &life_.node().saved, sizeof kept), 0);
    EXPECT_EQ(access("/run/kolt-bridged/tree.br0", F_OK), 0);
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
