// What outlives a kolt-bridged.
#include "decide/record.h"
#include "linux/decide/support_node.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

class Record : public testing::Test {
protected:
    Record() {
        node_.port(10, {.type = 3, .class_ = 1, .group = PORT_RELAY, .permit = false, .need_ha = true});
        node_.port(11, NONRELAY);
        node_.port(12, RELAY);
        node_.port(13, RELAY, false);
        node_.join({.ifindex = 11});
        node_.puppets.push_back({.ifindex = 10,
                                 .id = WORSE,
                                 .version = 7,
                                 .root = BEST,
                                 .parent = node_mac(OWN_ID),
                                 .hops = 2,
                                 .link_flags = LINK_ALIVE | LINK_UPWARD,
                                 .taking = {50, 50}});
        node_.pass(1000);
    }
    bool take_over(const tree_record &record) {
        node_.state = {};
        node_.now += 5000;
        if (!tree_take_over(&node_.state, record, 0xabcd0000, node_.now))
            return false;
        for (const uint32_t ifindex : {10U, 11U, 12U})
            node_.port(ifindex, RELAY);
        node_.port(13, RELAY, false);
        return true;
    }
    port_settings settings() {
        port_settings all;
        port_words(node_.state, &all);
        return all;
    }
    tree_record saved() {
        tree_record record;
        tree_save(node_.state, &record);
        return record;
    }
    one_node node_;
};

TEST_F(Record, RestartMovesNothing) {
    const port_settings before = settings();
    ASSERT_EQ(node_.role(10), ROLE_DOWNLINK);
    ASSERT_EQ(node_.role(11), ROLE_UPLINK);
    ASSERT_EQ(node_.role(12), ROLE_ACCESS);
    const neighbour_frame said = node_.said(11);
    ASSERT_TRUE(take_over(saved()));
    EXPECT_EQ(settings(), before);
    node_.sent.clear();
    node_.drain();
    const neighbour_frame now = node_.said(11);
    EXPECT_EQ(now.version, said.version);
    EXPECT_EQ(now.incarnation, said.incarnation);
    EXPECT_EQ(now.parent, said.parent);
    EXPECT_EQ(now.root, said.root);
    EXPECT_EQ(now.link_flags, said.link_flags);
    node_.pass(2000);
    EXPECT_EQ(settings(), before);
}

TEST_F(Record, NeighbourThatIsFrozenAtARestartKeepsItsRole) {
    for (puppet &one : node_.puppets)
        one.talks = false;
    node_.pass(1000);
    const port_settings before = settings();
    ASSERT_TRUE(take_over(saved()));
    node_.pass(2000);
    EXPECT_EQ(settings(), before);
}

TEST_F(Record, ParentThatDiedMeanwhileIsLeft) {
    const tree_record record = saved();
    node_.puppets.clear();
    ASSERT_TRUE(take_over(record));
    EXPECT_EQ(node_.state.parent, node_mac(BEST));
    node_.pass(400);
    EXPECT_EQ(node_.state.parent, 0U);
}

TEST_F(Record, EarlierWordOfANeighbourIsKnownAsSuchAfterwards) {
    ASSERT_TRUE(take_over(saved()));
    puppet before = node_.puppets[1];
    before.version = 6;
    before.parent = 0;
    node_.hello(before);
    EXPECT_EQ(node_.role(10), ROLE_DOWNLINK);
}

TEST_F(Record, TokensOfTheLifeBeforeMeanNothing) {
    const tree_record record = saved();
    const uint64_t token = node_.state.next_token;
    ASSERT_TRUE(take_over(record));
    EXPECT_NE(node_.state.next_token, token);
    EXPECT_EQ(node_.state.pending.token, 0U);
}

TEST_F(Record, StaysTheSameWhileNothingMoves) {
    const tree_record before = saved();
    node_.pass(5000);
    const tree_record after = saved();
    EXPECT_EQ(memcmp(&before, &after, sizeof before), 0);
    tree_port_carrier(&node_.state, 11, false, node_.now);
    const tree_record cut = saved();
    EXPECT_NE(memcmp(&before, &cut, sizeof before), 0);
}

TEST_F(Record, OfNobodyOrOfAnotherLayoutIsRefused) {
    const tree_record good = saved();
    tree_record bad = good;
    bad.magic++;
    EXPECT_FALSE(take_over(bad));
    bad = good;
    bad.record_version++;
    EXPECT_FALSE(take_over(bad));
    bad = good;
    bad.size--;
    EXPECT_FALSE(take_over(bad));
    node_.state.id = make_node_id(NODE_RANK_EXTENDER, std::array<uint8_t, 6>{}.data());
    EXPECT_FALSE(take_over(saved()));
}

TEST_F(Record, WithAnyByteDamagedIsRefused) {
    const tree_record good = saved();
    for (size_t i = 0; i < sizeof good; i += 13) {
        tree_record bad = good;
        auto *bytes = reinterpret_cast<uint8_t *>(&bad);
        bytes[i] ^= 0x20;
        ASSERT_FALSE(take_over(bad)) << i;
    }
}

TEST_F(Record, ReplacedCableIsNoticedAtTheNextFrame) {
    ASSERT_TRUE(take_over(saved()));
    puppet stranger{.ifindex = 12, .id = WORSE + 1, .root = WORSE + 1};
    node_.hello(stranger);
    EXPECT_EQ(node_.role(12), ROLE_CLOSED);
}

} // namespace
