// What each port may do, and the way from one state of all ports to the next.
#include "decide/port_words.h"
#include "linux/decide/support_node.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

constexpr port_flooding NOTHING = {};
constexpr port_flooding EVERYTHING = {true, true, true, true, true};

port_wish wish(uint8_t type, uint8_t bcast_class = 0) {
    return {.type = type, .class_ = bcast_class, .group = PORT_NONRELAY, .permit = false, .need_ha = true};
}

puppet child(uint32_t ifindex, uint32_t port, uint32_t taking) {
    return {.ifindex = ifindex,
            .id = WORSE,
            .port = port,
            .root = OWN_ID,
            .parent = node_mac(OWN_ID),
            .hops = 1,
            .link_flags = LINK_ALIVE | LINK_UPWARD,
            .taking = {taking, taking}};
}

TEST(PortWords, PortForHostsCarriesEverythingWithoutAGroup) {
    one_node node;
    node.port(10, {.type = 0, .class_ = 1, .group = PORT_RELAY, .permit = false, .need_ha = true});
    EXPECT_EQ(node.setting(10), (port_setting{10, {.class_ = 1}, NOTHING}));
    node.pass(500);
    EXPECT_EQ(node.setting(10), (port_setting{10, {0, PORT_OPEN, 3, 3, 1}, EVERYTHING}));
}

TEST(PortWords, OneLinkOfTheBundleCarriesGroupFrames) {
    one_node node;
    node.port(10, wish(2));
    node.port(11, wish(3));
    node.join({.ifindex = 10});
    node.puppets.push_back({.ifindex = 11, .port = 51});
    node.pass(200);
    const uint8_t flags = PORT_OPEN | PORT_NEED_HA;
    EXPECT_EQ(node.setting(10), (port_setting{10, {GROUP_UP, flags, 0, 0, 0}, NOTHING}));
    EXPECT_EQ(node.setting(11), (port_setting{11, {GROUP_UP, flags, 3, 3, 0}, EVERYTHING}));
    EXPECT_TRUE(carries_class(node.setting(11), 1));
    EXPECT_FALSE(carries_class(node.setting(10), 0));
}

TEST(PortWords, UnicastForUnknownAddressesTakesTheWayOfClassZero) {
    one_node node;
    node.port(10, wish(2, 0));
    node.port(11, wish(3, 1));
    node.join({.ifindex = 10});
    node.puppets.push_back({.ifindex = 11, .port = 51});
    node.pass(200);
    EXPECT_EQ(node.setting(10).word.accepts, 1);
    EXPECT_TRUE(node.setting(10).flooding.flood);
    EXPECT_EQ(node.setting(11).word.accepts, 2);
    EXPECT_FALSE(node.setting(11).flooding.flood);
    EXPECT_TRUE(node.setting(11).flooding.bcast_flood);
    EXPECT_EQ(node.setting(11).word.admits, 3);
}

TEST(PortWords, ChildGetsGroupFramesWhereItTakesThem) {
    one_node node;
    tree_set_follow(&node.state, true, node.now);
    node.port(10, RELAY);
    node.port(11, RELAY);
    node.puppets = {child(10, 50, 51), child(11, 51, 51)};
    node.pass(300);
    const uint8_t flags = PORT_OPEN | PORT_FOLLOW;
    const uint32_t group = node.setting(10).word.group;
    EXPECT_GE(group, GROUP_FIRST_CHILD);
    EXPECT_EQ(node.setting(10), (port_setting{10, {group, flags, 3, 0, 0}, NOTHING}));
    EXPECT_EQ(node.setting(11), (port_setting{11, {group, flags, 3, 3, 0}, EVERYTHING}));
}

TEST(PortWords, ChildThatMovesIsFollowed) {
    one_node node;
    node.port(10, RELAY);
    node.port(11, RELAY);
    node.puppets = {child(10, 50, 51), child(11, 51, 51)};
    node.pass(300);
    const uint32_t changes = node.state.changes;
    for (puppet &one : node.puppets) {
        one.taking = {50, 50};
        one.version++;
    }
    node.pass(50);
    EXPECT_NE(node.state.changes, changes);
    EXPECT_EQ(node.setting(10).word.accepts, 3);
    EXPECT_EQ(node.setting(11).word.accepts, 0);
}

TEST(PortWords, ChildrenHaveGroupsOfTheirOwn) {
    one_node node;
    node.port(10, RELAY);
    node.port(11, RELAY);
    node.puppets = {child(10, 50, 50), child(11, 51, 51)};
    node.puppets[1].id++;
    node.pass(300);
    EXPECT_NE(node.setting(10).word.group, node.setting(11).word.group);
}

TEST(PortWords, OnlyOnePortFeedsARoot) {
    one_node node;
    for (const uint32_t ifindex : {10U, 11U}) {
        port_wish permitted = wish(static_cast<uint8_t>(ifindex - 8));
        permitted.permit = true;
        node.port(ifindex, permitted);
    }
    node.pass(500);
    EXPECT_EQ(node.setting(10), (port_setting{10, {}, NOTHING}));
    EXPECT_EQ(node.setting(11), (port_setting{11, {GROUP_UP, PORT_OPEN | PORT_NEED_HA, 3, 3, 0}, EVERYTHING}));
}

TEST(PortWords, BackupIsTheBestPortOfTheSameGroupThatStaysOpen) {
    one_node node;
    node.port(10, wish(2));
    node.port(11, wish(3));
    node.port(12, wish(0));
    node.join({.ifindex = 10});
    node.puppets.push_back({.ifindex = 11, .port = 51});
    node.pass(200);
    port_settings both;
    port_words(node.state, &both);
    EXPECT_EQ(backup_port(node.state, both, both, 10), 11U);
    EXPECT_EQ(backup_port(node.state, both, both, 11), 10U);
    EXPECT_EQ(backup_port(node.state, both, both, 12), 0U) << "leads to nobody";
    EXPECT_EQ(backup_port(node.state, both, both, 99), 0U);
    tree_port_carrier(&node.state, 11, false, node.now);
    port_settings slower;
    port_words(node.state, &slower);
    EXPECT_EQ(backup_port(node.state, both, slower, 11), 10U);
    EXPECT_EQ(backup_port(node.state, slower, slower, 11), 0U) << "it was closed before";
    tree_port_remove(&node.state, 10, node.now);
    port_settings none;
    port_words(node.state, &none);
    EXPECT_EQ(backup_port(node.state, slower, none, 10), 0U);
}

// The plan from and to states of two ports, as words.
class PortPlan : public testing::Test {
protected:
    static port_setting open(uint32_t ifindex, uint8_t classes, uint32_t group = GROUP_UP) {
        return {ifindex,
                {group, PORT_OPEN, classes != 0 ? uint8_t{3} : uint8_t{0}, classes, 0},
                classes != 0 ? EVERYTHING : NOTHING};
    }
    static port_setting closed(uint32_t ifindex) {
        return {ifindex, {}, NOTHING};
    }
    void make(const std::vector<port_setting> &from, const std::vector<port_setting> &to) {
        port_settings old{};
        port_settings wanted{};
        std::copy(from.begin(), from.end(), old.begin());
        std::copy(to.begin(), to.end(), wanted.begin());
        port_plan_make(old, wanted, &plan_);
    }
    std::vector<port_setting> closing() {
        return {plan_.closing.begin(), plan_.closing.begin() + static_cast<long>(plan_.closing_count)};
    }
    std::vector<port_setting> opening() {
        return {plan_.opening.begin(), plan_.opening.begin() + static_cast<long>(plan_.opening_count)};
    }
    port_plan plan_;
};

TEST_F(PortPlan, IsEmptyWhereNothingChanges) {
    make({open(10, 3), closed(11)}, {open(10, 3), closed(11)});
    EXPECT_TRUE(closing().empty());
    EXPECT_TRUE(opening().empty());
}

TEST_F(PortPlan, OldLinkClosesBeforeTheNewOneOpens) {
    make({open(10, 3), open(11, 0)}, {open(10, 0), open(11, 3)});
    EXPECT_THAT(closing(), testing::ElementsAre(open(10, 0)));
    EXPECT_THAT(opening(), testing::ElementsAre(open(11, 3)));
}

TEST_F(PortPlan, PortOfAnotherGroupIsClosedInBetween) {
    make({open(10, 3, 2)}, {open(10, 3, GROUP_UP)});
    EXPECT_THAT(closing(), testing::ElementsAre(closed(10)));
    EXPECT_THAT(opening(), testing::ElementsAre(open(10, 3, GROUP_UP)));
}

TEST_F(PortPlan, ClassesThatMoveAreTakenBeforeTheyAreGiven) {
    make({open(10, 1), open(11, 2)}, {open(10, 2), open(11, 1)});
    EXPECT_EQ(closing().size(), 2U);
    for (const port_setting &one : closing())
        EXPECT_EQ(one.word.accepts, 0);
    EXPECT_THAT(opening(), testing::ElementsAre(open(10, 2), open(11, 1)));
}

TEST_F(PortPlan, PortThatIsGoneIsClosed) {
    make({open(10, 3), open(11, 0)}, {open(11, 0)});
    EXPECT_THAT(closing(), testing::ElementsAre(closed(10)));
    EXPECT_TRUE(opening().empty());
}

TEST_F(PortPlan, LinkOfAClassOfItsOwnIsNotClosedWhenItIsTakenOver) {
    port_setting wanted = open(10, 1);
    wanted.word.class_ = 1;
    make({}, {wanted});
    EXPECT_TRUE(closing().empty());
    EXPECT_THAT(opening(), testing::ElementsAre(wanted));
}

TEST_F(PortPlan, PortThatIsNewOpens) {
    make({}, {open(10, 3), closed(11)});
    EXPECT_TRUE(closing().empty());
    EXPECT_THAT(opening(), testing::ElementsAre(open(10, 3)));
}

} // namespace
