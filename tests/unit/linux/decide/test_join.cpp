// Requests to join and their grants: what a root, a node on the way and the origin do with them.
#include "linux/decide/support_node.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

join_record request(node_id origin, uint64_t token) {
    return {.kind = JOIN_REQUEST, .origin = origin, .token = token};
}

join_record grant(node_id origin, uint64_t token) {
    return {.kind = JOIN_GRANT, .origin = origin, .token = token};
}

// A node with a port to its parent (11) and one to a node that wants to join (10).
class Join : public testing::Test {
protected:
    Join() {
        node_.port(10, RELAY);
        node_.port(11, NONRELAY);
        node_.puppets.push_back({.ifindex = 10, .id = WORSE, .root = WORSE});
        node_.pass(200);
    }
    void take_parent() {
        node_.join({.ifindex = 11});
        ASSERT_EQ(node_.state.parent, node_mac(BEST));
    }
    puppet &below() {
        return node_.puppets[0];
    }
    puppet &above() {
        return node_.puppets[1];
    }
    // The token under which a request is passed on to the parent.
    uint64_t pass_up(uint64_t token) {
        const std::vector<join_record> passed = node_.answers(below(), {request(WORSE, token)}, 11);
        EXPECT_EQ(passed.size(), 1U);
        return passed.empty() ? 0 : passed[0].token;
    }
    // Leaves the parent and takes it again.
    void change_parent() {
        above().link_flags = 0;
        node_.pass(50);
        ASSERT_EQ(node_.state.parent, 0U);
        above().link_flags = LINK_ALIVE;
        node_.sent.clear();
        node_.pass(100);
        ASSERT_FALSE(node_.joins_sent(11).empty());
        node_.hello(above(), {grant(OWN_ID, node_.joins_sent(11).back().token)});
        ASSERT_EQ(node_.state.parent, node_mac(BEST));
    }
    one_node node_;
};

TEST_F(Join, RootGrantsWhoeverIsWorse) {
    EXPECT_THAT(node_.answers(below(), {request(WORSE, 9)}, 10), ElementsAre(grant(WORSE, 9)));
    EXPECT_THAT(node_.answers(below(), {request(OTHER, 9)}, 10), IsEmpty());
    EXPECT_THAT(node_.answers(below(), {request(OWN_ID, 9)}, 10), IsEmpty());
    EXPECT_THAT(node_.answers(below(), {request(WORSE, 0)}, 10), IsEmpty());
}

TEST_F(Join, AnswersThatAPortTookAwayWithItLeaveRoomForOthers) {
    std::vector<join_record> requests;
    for (node_id i = 0; i < TREE_JOINS; i++)
        requests.push_back(request(WORSE + i, 9));
    for (const join_record &one : requests)
        node_.hello(below(), {one});
    tree_port_remove(&node_.state, 10, node_.now);
    below().ifindex = 11;
    node_.pass(500);
    EXPECT_THAT(node_.answers(below(), {request(WORSE, 9)}, 11), ElementsAre(grant(WORSE, 9)));
}

TEST_F(Join, RootThatWaitsItselfGrantsNothing) {
    node_.puppets.push_back({.ifindex = 11});
    node_.pass(100);
    ASSERT_NE(node_.state.pending.token, 0U);
    EXPECT_THAT(node_.answers(below(), {request(WORSE, 9)}, 10), IsEmpty());
}

TEST_F(Join, RequestGoesToTheParentAndTheGrantBack) {
    take_parent();
    const uint64_t token = pass_up(9);
    EXPECT_NE(token, 9U);
    EXPECT_THAT(node_.answers(above(), {grant(WORSE, token)}, 10), ElementsAre(grant(WORSE, 9)));
    EXPECT_THAT(node_.answers(above(), {grant(WORSE, token)}, 10), IsEmpty()) << "once only";
}

TEST_F(Join, RepeatedRequestKeepsItsToken) {
    take_parent();
    const uint64_t token = pass_up(9);
    EXPECT_EQ(pass_up(9), token);
    EXPECT_NE(pass_up(10), token);
    EXPECT_THAT(node_.answers(above(), {grant(WORSE, token)}, 10), IsEmpty()) << "of the request before";
}

TEST_F(Join, GrantIsDroppedAfterAnotherParent) {
    take_parent();
    const uint64_t token = pass_up(9);
    change_parent();
    EXPECT_THAT(node_.answers(above(), {grant(WORSE, token)}, 10), IsEmpty());
    const uint64_t again = pass_up(9);
    EXPECT_NE(again, token);
    EXPECT_THAT(node_.answers(above(), {grant(WORSE, token)}, 10), IsEmpty()) << "of the time before";
    EXPECT_THAT(node_.answers(above(), {grant(WORSE, again)}, 10), ElementsAre(grant(WORSE, 9)));
}

TEST_F(Join, GrantCountsFromTheParentAlone) {
    take_parent();
    const uint64_t token = pass_up(9);
    EXPECT_THAT(node_.answers(below(), {grant(WORSE, token)}, 10), IsEmpty());
}

TEST_F(Join, GrantThatCameTooLateIsDropped) {
    take_parent();
    const uint64_t token = pass_up(9);
    node_.pass(1050);
    EXPECT_THAT(node_.answers(above(), {grant(WORSE, token)}, 10), IsEmpty());
}

TEST_F(Join, RequestOfTheParentIsDropped) {
    take_parent();
    EXPECT_THAT(node_.answers(above(), {request(WORSE, 9)}, 11), IsEmpty());
}

TEST_F(Join, RequestOverALinkThatIsNotInOrderIsDropped) {
    below().link_flags = 0;
    EXPECT_THAT(node_.answers(below(), {request(WORSE, 9)}, 10), IsEmpty());
}

TEST_F(Join, OnlyTheGrantOfTheCurrentRequestCounts) {
    node_.puppets.push_back({.ifindex = 11});
    node_.pass(100);
    const uint64_t token = node_.state.pending.token;
    node_.hello(above(), {grant(OWN_ID, token + 1)});
    EXPECT_EQ(node_.state.parent, 0U);
    node_.hello(below(), {grant(OWN_ID, token)});
    EXPECT_EQ(node_.state.parent, 0U) << "from another than was asked";
    node_.hello(above(), {grant(OWN_ID, token)});
    EXPECT_EQ(node_.state.parent, node_mac(BEST));
}

TEST_F(Join, RequestIsRepeatedAndGivenUpAfterASecond) {
    node_.puppets.push_back({.ifindex = 11});
    node_.sent.clear();
    node_.pass(950);
    EXPECT_GE(node_.joins_sent(11).size(), 9U);
    const uint64_t token = node_.joins_sent(11)[0].token;
    node_.pass(150);
    EXPECT_EQ(node_.state.pending.token, 0U);
    node_.hello(above(), {grant(OWN_ID, token)});
    EXPECT_EQ(node_.state.parent, 0U);
    EXPECT_THAT(node_.answers(below(), {request(WORSE, 9)}, 10), ElementsAre(grant(WORSE, 9))) << "while it rests";
}

TEST_F(Join, WhoeverRefusedIsAskedLaterAndLater) {
    node_.puppets.push_back({.ifindex = 11});
    std::vector<uint64_t> begins;
    uint64_t token = 0;
    for (int i = 0; i < 400; i++) {
        node_.pass(100);
        if (node_.state.pending.token != 0 && node_.state.pending.token != token)
            begins.push_back(node_.now);
        token = node_.state.pending.token;
    }
    ASSERT_GE(begins.size(), 4U);
    EXPECT_LT(begins.size(), 8U);
    EXPECT_GT(begins[3] - begins[2], begins[1] - begins[0]);
}

TEST_F(Join, AnotherNeighbourIsAskedNext) {
    node_.port(12, NONRELAY);
    node_.puppets.push_back({.ifindex = 11});
    node_.puppets.push_back({.ifindex = 12, .id = OTHER, .root = BEST, .hops = 3});
    node_.pass(1000);
    EXPECT_TRUE(node_.joins_sent(12).empty());
    node_.pass(500);
    EXPECT_FALSE(node_.joins_sent(12).empty());
}

TEST_F(Join, ManyRequestsAtOnceDoNotGrowBeyondTheirRoom) {
    take_parent();
    for (uint64_t i = 0; i < 100; i++)
        node_.hello(below(), {request(WORSE + i, 9 + i)});
    node_.drain();
    EXPECT_EQ(node_.joins_sent(11).size() - 1, TREE_JOINS) << "and its own";
}

} // namespace
