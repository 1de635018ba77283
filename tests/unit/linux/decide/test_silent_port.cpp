// Whom a port belongs to whose neighbour has not been heard for long: it may come back, or hosts have taken its place.
#include "linux/decide/support_node.h"

#include <gtest/gtest.h>

namespace {

// A neighbour that cannot have the node as its parent, on a port on which hosts may be as well.
class SilentPort : public testing::Test {
protected:
    SilentPort() {
        node_.port(10, RELAY);
        node_.puppets.push_back({.ifindex = 10, .id = WORSE, .root = WORSE});
        tree_port_foreign(&node_.state, 10, count_, node_.now);
        node_.pass(1000);
    }
    void fall_silent(uint64_t ms) {
        node_.puppets.clear();
        node_.pass(ms);
    }
    // Frames that no node sends come in, and are counted.
    void hear_hosts() {
        tree_port_foreign(&node_.state, 10, ++count_, node_.now);
    }

    one_node node_;
    uint32_t count_ = UINT32_MAX - 1; // the counter is one that begins anew
};

TEST_F(SilentPort, StaysClosedUntilHostsAreHeardForAsLongAsANeighbourMayTake) {
    fall_silent(100000);
    EXPECT_EQ(node_.role(10), ROLE_CLOSED);
    hear_hosts();
    node_.pass(350);
    hear_hosts();
    EXPECT_EQ(node_.role(10), ROLE_CLOSED);
    node_.pass(50);
    tree_port_foreign(&node_.state, 10, count_, node_.now);
    EXPECT_EQ(node_.role(10), ROLE_CLOSED) << "they are not heard any more";
    hear_hosts();
    EXPECT_EQ(node_.role(10), ROLE_ACCESS);
}

// A switch or an adapter on the way says something every few seconds.
TEST_F(SilentPort, FramesThatComeNowAndThenAreNoHosts) {
    fall_silent(100000);
    for (int i = 0; i < 10; i++) {
        hear_hosts();
        node_.pass(2000);
    }
    EXPECT_EQ(node_.role(10), ROLE_CLOSED);
    for (int i = 0; i < 2; i++) {
        hear_hosts();
        node_.pass(1000); // as often as a host asks for an address that does not answer
    }
    EXPECT_EQ(node_.role(10), ROLE_ACCESS);
}

TEST_F(SilentPort, StaysClosedForTheTimeOfRememberingItsNeighbour) {
    fall_silent(0);
    for (int i = 0; i < 390; i++) {
        node_.pass(50);
        hear_hosts();
    }
    EXPECT_EQ(node_.role(10), ROLE_CLOSED);
    node_.pass(1000);
    EXPECT_EQ(node_.role(10), ROLE_ACCESS);
}

TEST_F(SilentPort, FramesThatCameInWhenItsNeighbourTalkedAreNone) {
    hear_hosts();
    fall_silent(250);
    hear_hosts();
    node_.pass(100000);
    hear_hosts();
    EXPECT_EQ(node_.role(10), ROLE_CLOSED);
}

TEST_F(SilentPort, NeighbourThatReturnsWithTheFramesOfItsHostsIsNotTakenForThem) {
    const puppet neighbour = node_.puppets[0];
    fall_silent(100000);
    hear_hosts();
    node_.pass(200);
    node_.hello(neighbour);
    fall_silent(50000);
    hear_hosts();
    EXPECT_EQ(node_.role(10), ROLE_CLOSED);
}

TEST_F(SilentPort, StaysClosedWhenItsNeighbourDecidedNothingAnyMore) {
    node_.puppets[0].talks = false;
    node_.pass(1000);
    fall_silent(100000);
    for (int i = 0; i < 100; i++) {
        node_.pass(50);
        hear_hosts();
    }
    EXPECT_EQ(node_.role(10), ROLE_CLOSED);
}

TEST_F(SilentPort, IsForHostsAfterTheCarrierWasGone) {
    fall_silent(0);
    tree_port_carrier(&node_.state, 10, false, node_.now);
    tree_port_carrier(&node_.state, 10, true, node_.now);
    node_.pass(450);
    EXPECT_EQ(node_.role(10), ROLE_ACCESS);
}

} // namespace
