// What ports are to a node, and whom it takes as its parent.
#include "linux/decide/support_node.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(Tree, RelayPortIsForHostsWhenNobodyIsHeard) {
    one_node node;
    node.port(10, RELAY);
    node.pass(350);
    EXPECT_EQ(node.role(10), ROLE_CLOSED);
    node.pass(100);
    EXPECT_EQ(node.role(10), ROLE_ACCESS);
}

TEST(Tree, TimeForHostsBeginsWithTheCarrier) {
    one_node node;
    node.port(10, RELAY, false);
    node.pass(2000);
    EXPECT_EQ(node.role(10), ROLE_CLOSED);
    tree_port_carrier(&node.state, 10, true, node.now);
    node.pass(350);
    EXPECT_EQ(node.role(10), ROLE_CLOSED);
    node.pass(100);
    EXPECT_EQ(node.role(10), ROLE_ACCESS);
    tree_port_carrier(&node.state, 10, false, node.now);
    EXPECT_EQ(node.role(10), ROLE_CLOSED);
}

TEST(Tree, PortForHostsClosesWithTheFirstFrameOfANode) {
    one_node node;
    node.port(10, RELAY);
    node.pass(500);
    node.hello({.ifindex = 10});
    EXPECT_EQ(node.role(10), ROLE_CLOSED);
}

TEST(Tree, PortWhereOnlyTheKernelAnswersIsNotForHosts) {
    one_node node;
    node.port(10, RELAY);
    node.puppets.push_back({.ifindex = 10, .talks = false});
    node.pass(3000);
    EXPECT_EQ(node.role(10), ROLE_CLOSED);
}

TEST(Tree, NonrelayPortWithoutANodeFeedsARootWhilePermitted) {
    one_node node;
    node.port(10, NONRELAY);
    node.port(11, NONRELAY);
    node.pass(500);
    EXPECT_EQ(node.role(10), ROLE_CLOSED);
    port_wish permitted = NONRELAY;
    permitted.permit = true;
    tree_port_wish(&node.state, 10, permitted, node.now);
    EXPECT_EQ(node.role(10), ROLE_OUTSIDE);
    node.join({.ifindex = 11});
    EXPECT_EQ(node.role(11), ROLE_UPLINK);
    EXPECT_EQ(node.role(10), ROLE_CLOSED);
}

TEST(Tree, JoinsABetterRootAndSaysSo) {
    one_node node;
    node.port(11, NONRELAY);
    node.join({.ifindex = 11});
    EXPECT_EQ(node.role(11), ROLE_UPLINK);
    const neighbour_frame said = node.said(11);
    EXPECT_EQ(said.parent, node_mac(BEST));
    EXPECT_EQ(said.root, BEST);
    EXPECT_EQ(said.hops, 1);
    EXPECT_EQ(said.taking[0], 11U);
    EXPECT_EQ(said.link_flags, LINK_ALIVE | LINK_UPWARD);
}

TEST(Tree, AsksNobodyOfAWorseRoot) {
    one_node node;
    node.port(11, NONRELAY);
    node.puppets.push_back({.ifindex = 11, .id = WORSE, .root = WORSE});
    node.pass(3000);
    EXPECT_EQ(node.state.parent, 0U);
    EXPECT_TRUE(node.joins_sent(11).empty());
}

TEST(Tree, NeighbourWhoseParentIsTheNodeIsAChild) {
    one_node node;
    node.port(10, RELAY);
    puppet child{.ifindex = 10, .id = WORSE, .root = OWN_ID, .parent = node_mac(OWN_ID), .hops = 1};
    node.puppets.push_back(child);
    node.pass(200);
    EXPECT_EQ(node.role(10), ROLE_CLOSED) << "the child does not use this link";
    node.puppets[0].link_flags = LINK_ALIVE | LINK_UPWARD;
    node.pass(50);
    EXPECT_EQ(node.role(10), ROLE_DOWNLINK);
    node.puppets[0].version++;
    node.puppets[0].parent = 0;
    node.pass(50);
    EXPECT_EQ(node.role(10), ROLE_CLOSED);
}

TEST(Tree, LinkIsDeadAfterThreeIntervalsWithoutAnEcho) {
    one_node node;
    node.port(11, NONRELAY);
    node.join({.ifindex = 11});
    node.pass(1000);
    node.puppets[0].echoes = false;
    node.pass(200);
    EXPECT_EQ(node.role(11), ROLE_UPLINK);
    node.pass(250);
    EXPECT_EQ(node.role(11), ROLE_CLOSED);
    EXPECT_EQ(node.state.parent, 0U);
    EXPECT_EQ(node.said(11).link_flags, 0);
}

TEST(Tree, DeadLinkIsTrustedAgainAfterThreeEchoes) {
    one_node node;
    node.port(11, NONRELAY);
    node.puppets.push_back({.ifindex = 11});
    node.pass(500);
    node.puppets[0].echoes = false;
    node.pass(600);
    node.puppets[0].echoes = true;
    node.pass(150);
    EXPECT_FALSE(node.state.ports[0].alive);
    node.pass(200);
    EXPECT_TRUE(node.state.ports[0].alive);
}

TEST(Tree, EchoOfAnEarlierCarrierProvesNothing) {
    one_node node;
    node.port(11, NONRELAY);
    node.pass(300);
    const neighbour_frame before = [&] {
        for (const tree_send &one : node.sent) {
            if (one.frame.kind == FRAME_PROBE)
                return one.frame;
        }
        return neighbour_frame{};
    }();
    tree_port_carrier(&node.state, 11, false, node.now);
    tree_port_carrier(&node.state, 11, true, node.now);
    neighbour_frame echo = before;
    echo.kind = FRAME_ECHO;
    echo.echoed_by = BEST;
    tree_receive(&node.state, 11, echo, node.now);
    EXPECT_FALSE(node.state.ports[0].alive);
    node.puppets.push_back({.ifindex = 11});
    node.pass(150);
    EXPECT_TRUE(node.state.ports[0].alive);
}

TEST(Tree, LossOfTheCarrierMovesToTheNextLinkAtOnce) {
    one_node node;
    node.port(11, NONRELAY);
    node.port(12, NONRELAY);
    node.join({.ifindex = 11});
    node.puppets.push_back({.ifindex = 12, .port = 51});
    node.pass(200);
    ASSERT_EQ(node.role(12), ROLE_UPLINK);
    ASSERT_EQ(node.state.taking_slot[0], 0);
    tree_port_carrier(&node.state, 11, false, node.now);
    EXPECT_EQ(node.state.taking_slot[0], 1);
    EXPECT_EQ(node_mac(BEST), node.state.parent);
    tree_port_carrier(&node.state, 12, false, node.now);
    EXPECT_EQ(node.state.parent, 0U);
    EXPECT_EQ(node.state.root, OWN_ID);
}

TEST(Tree, LinkThatTheOtherEndFindsDeadIsNotUsed) {
    one_node node;
    node.port(11, NONRELAY);
    node.join({.ifindex = 11});
    node.puppets[0].link_flags = 0;
    node.pass(50);
    EXPECT_EQ(node.role(11), ROLE_CLOSED);
}

TEST(Tree, FrozenParentIsKeptAndTold) {
    one_node node;
    node.port(11, NONRELAY);
    node.join({.ifindex = 11});
    node.puppets[0].talks = false;
    node.pass(60000);
    EXPECT_EQ(node.role(11), ROLE_UPLINK);
    EXPECT_EQ(node.said(11).node_flags, NODE_BELOW_FROZEN);
    node.puppets[0].talks = true;
    node.pass(100);
    EXPECT_EQ(node.said(11).node_flags, 0);
}

TEST(Tree, NobodyJoinsThroughWhoeverIsFrozenOrBelow) {
    one_node node;
    node.port(11, NONRELAY);
    node.puppets.push_back({.ifindex = 11, .flags = NODE_BELOW_FROZEN});
    node.pass(1000);
    EXPECT_TRUE(node.joins_sent(11).empty());
    node.puppets[0].flags = 0;
    node.puppets[0].version++;
    node.pass(100);
    EXPECT_FALSE(node.joins_sent(11).empty());
}

TEST(Tree, PortWithTwoNodesIsClosedAndTheySaySo) {
    one_node node;
    node.port(11, NONRELAY);
    node.join({.ifindex = 11});
    node.puppets.push_back({.ifindex = 11, .id = OTHER, .port = 60, .root = OTHER});
    node.pass(50);
    EXPECT_EQ(node.role(11), ROLE_CLOSED);
    EXPECT_EQ(node.said(11).link_flags & LINK_SHARED, LINK_SHARED);
    node.puppets.pop_back();
    node.pass(19000);
    EXPECT_EQ(node.role(11), ROLE_CLOSED);
    node.pass(3000);
    EXPECT_EQ(node.said(11).link_flags & LINK_SHARED, 0) << "the other one has been silent for long";
}

TEST(Tree, PortThatHearsTheNodeItselfIsClosed) {
    one_node node;
    node.port(10, RELAY);
    node.pass(500);
    node.hello({.ifindex = 10, .id = OWN_ID, .port = 11});
    node.pass(1000);
    EXPECT_EQ(node.role(10), ROLE_CLOSED);
}

TEST(Tree, StateThatWasSaidEarlierIsIgnored) {
    one_node node;
    node.port(10, RELAY);
    const puppet child = child_on(10);
    node.puppets.push_back(child);
    node.pass(200);
    ASSERT_EQ(node.role(10), ROLE_DOWNLINK);
    puppet before = child;
    before.version = child.version - 1;
    before.parent = 0;
    node.hello(before);
    EXPECT_EQ(node.role(10), ROLE_DOWNLINK);
}

TEST(Tree, LateWordOfAForgottenLifeIsIgnored) {
    one_node node;
    node.port(10, RELAY);
    const puppet child = child_on(10);
    node.puppets.push_back(child);
    node.pass(200);
    puppet reborn{.ifindex = 10, .id = WORSE, .incarnation = 2, .version = 0, .root = WORSE};
    node.puppets[0] = reborn;
    node.pass(50);
    ASSERT_EQ(node.role(10), ROLE_CLOSED);
    node.hello(child);
    EXPECT_EQ(node.role(10), ROLE_CLOSED);
}

TEST(Tree, LeavesForABetterRootOnlyWhenItIsThereForAWhile) {
    one_node node;
    node.port(11, NONRELAY);
    node.port(12, NONRELAY);
    node.join({.ifindex = 11, .id = OTHER, .root = OTHER});
    ASSERT_EQ(node.state.root, OTHER);
    node.puppets.push_back({.ifindex = 12, .port = 51});
    node.pass(100);
    EXPECT_EQ(node.state.parent, node_mac(OTHER));
    node.pass(150);
    EXPECT_EQ(node.state.parent, 0U);
    EXPECT_FALSE(node.joins_sent(12).empty());
}

TEST(Tree, LeavesForAShorterWayAfterTwoSeconds) {
    one_node node;
    node.port(11, NONRELAY);
    node.port(12, NONRELAY);
    node.join({.ifindex = 11, .id = OTHER, .root = BEST, .hops = 4});
    node.puppets.push_back({.ifindex = 12, .port = 51});
    node.pass(1900);
    EXPECT_EQ(node.state.parent, node_mac(OTHER));
    node.pass(300);
    EXPECT_EQ(node.state.parent, 0U);
}

TEST(Tree, RelayPortLeadsToAParentOnlyWhereNoOtherDoes) {
    one_node node;
    node.port(10, RELAY);
    node.join({.ifindex = 10});
    EXPECT_EQ(node.role(10), ROLE_UPLINK);
    node.port(11, NONRELAY);
    node.puppets.push_back({.ifindex = 11, .port = 51});
    node.pass(200);
    EXPECT_EQ(node.role(11), ROLE_UPLINK);
    EXPECT_EQ(node.role(10), ROLE_CLOSED);
}

// One as near as the node itself cannot be below it.
TEST(Tree, LeavesARelayPortOnlyForWhoeverIsNotFurtherAway) {
    for (const uint8_t hops : {uint8_t{1}, uint8_t{2}}) {
        one_node node;
        node.port(10, RELAY);
        node.port(11, NONRELAY);
        node.join({.ifindex = 10, .id = OTHER, .root = OTHER});
        EXPECT_EQ(node.state.hops, 1);
        node.puppets.push_back(
            {.ifindex = 11, .id = WORSE, .port = 51, .root = OTHER, .parent = node_mac(BEST), .hops = hops});
        node.pass(2300);
        EXPECT_EQ(node.state.parent, hops == 1 ? 0U : node_mac(OTHER));
    }
}

TEST(Tree, ParentBelowTheNodeItselfIsLeft) {
    one_node node;
    node.port(11, NONRELAY);
    node.join({.ifindex = 11});
    node.puppets[0].root = OWN_ID;
    node.puppets[0].version++;
    node.pass(50);
    EXPECT_EQ(node.state.parent, 0U);
}

TEST(Tree, NodeThatBecomesARootLeavesAnExtenders) {
    one_node node;
    node.port(11, NONRELAY);
    node.join({.ifindex = 11, .id = OTHER, .root = OTHER});
    tree_set_rank(&node.state, NODE_RANK_ROOT, node.now);
    EXPECT_EQ(node.state.parent, node_mac(OTHER));
    node.pass(400);
    EXPECT_EQ(node.state.parent, 0U);
    EXPECT_EQ(node.state.root, node_mac(OWN_ID));
}

TEST(Tree, WakesForNothingBetweenItsFrames) {
    one_node node;
    node.port(11, NONRELAY);
    node.port(12, RELAY);
    node.join({.ifindex = 11});
    node.pass(1000);
    while (tree_next_ms(node.state) <= node.now)
        tree_tick(&node.state, node.now);
    EXPECT_GE(tree_next_ms(node.state), node.now + 50);
}

TEST(Tree, NoticesGoToTheParentWithTheNextHello) {
    one_node node;
    node.port(11, NONRELAY);
    EXPECT_FALSE(tree_tell_stream(&node.state, {}));
    node.join({.ifindex = 11});
    node.drain();
    node.sent.clear();
    for (uint16_t i = 0; i < TREE_NOTICES; i++)
        ASSERT_TRUE(tree_tell_stream(&node.state, {.src_port = i}));
    EXPECT_FALSE(tree_tell_stream(&node.state, {}));
    node.drain();
    std::vector<uint16_t> ports;
    for (const tree_send &one : node.sent) {
        for (size_t i = 0; i < one.frame.stream_count; i++)
            ports.push_back(one.frame.streams[i].src_port);
    }
    EXPECT_EQ(ports.size(), TREE_NOTICES);
    EXPECT_TRUE(std::is_sorted(ports.begin(), ports.end()));
}

TEST(Tree, HasRoomForSoManyPortsOnly) {
    one_node node;
    for (uint32_t i = 0; i < TREE_PORTS; i++)
        ASSERT_TRUE(tree_port_add(&node.state, 10 + i, RELAY, true, node.now));
    EXPECT_FALSE(tree_port_add(&node.state, 99, RELAY, true, node.now));
    tree_port_remove(&node.state, 12, node.now);
    EXPECT_TRUE(tree_port_add(&node.state, 99, RELAY, true, node.now));
    EXPECT_EQ(tree_slot(node.state, 99), 2);
}

} // namespace
