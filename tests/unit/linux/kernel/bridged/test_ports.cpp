// Ports that come to the bridges and leave them, and what one process leaves to the next.
#include "bridged/ports.h"

#include "bridged/calls.h"
#include "bridged/clients.h"
#include "bridged/saved_state.h"
#include "linux/support/bridged_test.h"
#include "linux/support/next_life_test.h"

#include <cerrno>
#include <net/if.h>
#include <unistd.h>

namespace {

constexpr mac_address ANOTHER = {0x02, 0, 0, 0, 0xb7, 0x77};

class ports_test : public bridged_test {
protected:
    [[nodiscard]] bool knows(uint32_t ifindex, size_t place = 0) {
        return node_find_port_index(&life_.node(place), ifindex) != nullptr;
    }
    [[nodiscard]] bool is_link(uint32_t ifindex, size_t place = 0) {
        return tree_slot(life_.node(place).links, ifindex) != NO_SLOT;
    }
};

TEST_F(ports_test, BackhaulPortsAreGuardedAndOthersAreNot) {
    for (const size_t place : {SLOW_LINK, FAST_LINK, CHILD_LINK}) {
        EXPECT_TRUE(kolt_programs::attached(port(place)));
        EXPECT_TRUE(is_link(port(place)));
    }
    EXPECT_TRUE(knows(port(HOSTS)));
    EXPECT_FALSE(kolt_programs::attached(port(HOSTS)));
    EXPECT_FALSE(is_link(port(HOSTS)));
    EXPECT_TRUE(is_kept("port.p0") && is_kept("port.p1") && is_kept("port.p2"));
    EXPECT_FALSE(is_kept("port.p3"));
}

TEST_F(ports_test, PortThatLeavesIsGivenBack) {
    join();
    take_out_of_bridge("p1");
    ASSERT_TRUE(life_.hear_until([this] { return !knows(port(FAST_LINK)); }));
    EXPECT_FALSE(kolt_programs::attached(port(FAST_LINK)));
    EXPECT_FALSE(is_link(port(FAST_LINK)));
    EXPECT_FALSE(is_kept("port.p1"));
    EXPECT_EQ(life_.word(port(FAST_LINK)), kolt_port{});
    EXPECT_EQ(life_.word(port(SLOW_LINK)).accepts, 3) << "the other one has its work at once";
}

TEST_F(ports_test, PortThatComesIsGuardedBeforeItsFirstFrame) {
    take_out_of_bridge("p1");
    ASSERT_TRUE(life_.hear_until([this] { return !knows(port(FAST_LINK)); }));
    put_into_bridge("p1", "br0");
    ASSERT_TRUE(life_.hear_until([this] { return knows(port(FAST_LINK)); }));
    EXPECT_TRUE(kolt_programs::attached(port(FAST_LINK)));
    EXPECT_EQ(life_.word(port(FAST_LINK)).flags & KOLT_PORT_OPEN, 0);
    EXPECT_TRUE(is_kept("port.p1"));
}

TEST_F(ports_test, InterfaceThatIsRemovedIsForgotten) {
    const uint32_t gone = port(FAST_LINK);
    join();
    remove_interface("p1");
    ASSERT_TRUE(life_.hear_until([&] { return !knows(gone); }));
    EXPECT_FALSE(is_link(gone));
    EXPECT_FALSE(is_kept("port.p1"));
    EXPECT_EQ(life_.word(gone), kolt_port{});
}

TEST_F(ports_test, LookingFindsWhatWasNotAnnounced) {
    take_out_of_bridge("p1");
    make_wire("p6", "e6");
    put_into_bridge("p6", "br0");
    ports_look(life_.get());
    EXPECT_FALSE(knows(port(FAST_LINK)));
    EXPECT_FALSE(kolt_programs::attached(port(FAST_LINK)));
    EXPECT_NE(node_find_port(&life_.node(), "p6"), nullptr);
}

TEST_F(ports_test, LostCarrierClosesThePortAtOnce) {
    join();
    bring_down("e1");
    ASSERT_TRUE(life_.hear_until([this] { return (life_.word(port(FAST_LINK)).flags & KOLT_PORT_OPEN) == 0; }));
    EXPECT_EQ(life_.word(port(SLOW_LINK)).accepts, 3);
}

TEST_F(ports_test, BridgeThatTookTheNameOfAnotherIsTheOneThatCounts) {
    join();
    ASSERT_EQ(clients_add(&life_.node(), CLIENT.data(), NOBODY.data(), "p0"), 0);
    rename_interface("br0", "br7");
    make_bridge("br0");
    put_into_bridge("p1", "br0");
    ASSERT_TRUE(life_.hear_until([this] { return life_.node().ifindex == if_nametoindex("br0"); }));
    EXPECT_TRUE(life_.hear_until([this] { return knows(port(FAST_LINK)); }));
    EXPECT_FALSE(knows(port(SLOW_LINK)));
    EXPECT_FALSE(kolt_programs::attached(port(SLOW_LINK))) << "it is in a bridge that is nobody's";
    EXPECT_EQ(life_->programs.hd_find(CLIENT.data()), 0U);
    fdb_record entry;
    EXPECT_EQ(fdb_find(life_->rtnl, if_nametoindex("br7"), CLIENT, &entry), ENOENT);
    EXPECT_EQ(life_.node().links.parent, 0U);
}

TEST_F(ports_test, BridgeThatGetsTheNameBringsItsPorts) {
    remove_interface("br0");
    ASSERT_TRUE(life_.hear_until([this] { return life_.node().ifindex == 0; }));
    make_bridge("br7");
    put_into_bridge("p1", "br7");
    ASSERT_TRUE(life_.hear_until([this] { return !knows(port(FAST_LINK)); }));
    rename_interface("br7", "br0");
    EXPECT_TRUE(life_.hear_until([this] { return knows(port(FAST_LINK)); }));
    EXPECT_TRUE(kolt_programs::attached(port(FAST_LINK)));
}

TEST_F(ports_test, NodeStaysWhoItIsWhenItsBridgeGetsAnotherAddress) {
    const node_id id = life_.node().links.id;
    join();
    set_address("br0", ANOTHER);
    ASSERT_TRUE(life_.hear_until([this] { return life_.node().mac == ANOTHER; }));
    EXPECT_EQ(life_.node().links.id, id);
    EXPECT_EQ(life_.node().links.parent, node_mac(BEST));
    EXPECT_EQ(node_find_port(&life_.node(), "p1")->mac, ANOTHER) << "its frames come from an address that it has";
    wires_.end(FAST_LINK).send(probe(SERVER));
    const std::string from(ANOTHER.begin(), ANOTHER.end());
    EXPECT_TRUE(comes_true([&] {
        const std::string answer = wires_.end(FAST_LINK).receive(0);
        return answer.size() > 15 && answer[15] == KOLT_NEIGHBOUR_ECHO && answer.substr(6, 6) == from;
    }));
}

// Frames of a class that there is not would leave nowhere.
TEST(PortClasses, FramesThatComeInAreOfOneThatThereIs) {
    const bridged_wires wires(3);
    bridged_life life(
        {{.name = "p0", .class_ = 2}, {.name = "p1", .relay = 1, .path = 0, .class_ = 3}, {.name = "p2", .class_ = 1}});
    ports_look(life.get());
    ASSERT_NE(tree_slot(life.node().links, wires.port(0)), NO_SLOT);
    EXPECT_EQ(life.word(wires.port(0)).class_, 0);
    EXPECT_EQ(life.word(wires.port(1)).class_, 0);
    EXPECT_EQ(life.word(wires.port(2)).class_, 1);
}

// The same node with a second bridge.
class two_bridges_test : public testing::Test {
protected:
    two_bridges_test() {
        ports_look(life_.get());
    }
    bridged_wires one_{2};
    bridged_wires two_{1, 1500, 2}; // br2 with p2
    bridged_life life_{{SLOW, FAST, DOWNWARD}, {"br0", "br2"}};
};

TEST_F(two_bridges_test, PortThatMovesIsGuardedByTheOtherTree) {
    const uint32_t moved = one_.port(1);
    put_into_bridge("p1", "br2");
    link_info link; // of what was announced, only the last
    ASSERT_EQ(link_get(life_->rtnl, moved, &link), 0);
    ports_link_changed(life_.get(), link);
    ASSERT_NE(node_find_port_index(&life_.node(1), moved), nullptr);
    EXPECT_EQ(node_find_port_index(&life_.node(0), moved), nullptr);
    EXPECT_EQ(tree_slot(life_.node(0).links, moved), NO_SLOT);
    EXPECT_NE(tree_slot(life_.node(1).links, moved), NO_SLOT);
    EXPECT_TRUE(kolt_programs::attached(moved));
    EXPECT_TRUE(is_kept("port.p1"));
}

TEST_F(two_bridges_test, BridgeThatGetsTheNameOfAnotherIsOfThatTreeAlone) {
    const uint32_t index = if_nametoindex("br0");
    const auto moves = [&](size_t from, size_t to) {
        return life_.node(from).ifindex == 0 && life_.node(to).ifindex == index &&
               node_find_port_index(&life_.node(to), one_.port(0)) != nullptr;
    };
    remove_interface("br2");
    rename_interface("br0", "br2");
    EXPECT_TRUE(life_.hear_until([&] { return moves(0, 1); }));
    EXPECT_TRUE(kolt_programs::attached(one_.port(0)));
    EXPECT_TRUE(is_kept("port.p0"));
    EXPECT_EQ(node_find_port_index(&life_.node(0), one_.port(0)), nullptr);
    rename_interface("br2", "br0");
    EXPECT_TRUE(life_.hear_until([&] { return moves(1, 0); }));
    rename_interface("br0", "br2");
    EXPECT_TRUE(ports_look(life_.get()));
    EXPECT_TRUE(moves(0, 1)) << "which was not announced";
}

TEST_F(ports_test, BridgeThatIsGoneTakesAllWithIt) {
    join();
    ASSERT_TRUE(life_->reported.links[KOLT_LINK_5G].up);
    ASSERT_EQ(clients_add(&life_.node(), CLIENT.data(), NOBODY.data(), "p1"), 0);
    remove_interface("br0");
    ASSERT_TRUE(life_.hear_until([this] { return life_.node().ifindex == 0; }));
    for (const size_t place : {SLOW_LINK, FAST_LINK, CHILD_LINK, HOSTS}) {
        EXPECT_FALSE(knows(port(place)));
        EXPECT_FALSE(is_link(port(place)));
        EXPECT_FALSE(kolt_programs::attached(port(place)));
    }
    EXPECT_EQ(life_.node().client_count, 0U);
    EXPECT_EQ(life_->programs.hd_find(CLIENT.data()), 0U);
    EXPECT_FALSE(is_kept("tree.br0")) << "another bridge of that name is none of it";
    EXPECT_FALSE(life_->reported.links[KOLT_LINK_5G].up);
}

TEST_F(ports_test, BridgeThatComesBackBeginsAnew) {
    join();
    remove_interface("br0");
    ASSERT_TRUE(life_.hear_until([this] { return life_.node().ifindex == 0; }));
    make_bridge("br0");
    bring_up("br0");
    put_into_bridge("p1", "br0");
    ASSERT_TRUE(life_.hear_until([this] { return knows(port(FAST_LINK)); }));
    EXPECT_TRUE(kolt_programs::attached(port(FAST_LINK)));
    EXPECT_EQ(life_.node().links.parent, 0U);
    EXPECT_FALSE(is_link(port(SLOW_LINK)));
    EXPECT_EQ(life_.word(port(FAST_LINK)).flags & KOLT_PORT_OPEN, 0);
}

TEST_F(next_life_test, GoesOnWhereTheOneBeforeEnded) {
    first_life();
    const auto life = begin();
    EXPECT_EQ(life->node().links.parent, node_mac(BEST));
    EXPECT_EQ(life->word(port(FAST_LINK)).accepts, 3);
    EXPECT_EQ(life->word(port(SLOW_LINK)).flags & KOLT_PORT_OPEN, KOLT_PORT_OPEN);
}

TEST_F(next_life_test, IsTheSameNodeWhenTheBridgeGotAnotherAddressMeanwhile) {
    first_life();
    const node_id id = begin()->node().links.id;
    set_address("br0", ANOTHER);
    const auto life = begin();
    EXPECT_EQ(life->node().links.id, id);
    EXPECT_EQ(life->node().links.parent, node_mac(BEST));
    EXPECT_EQ(life->word(port(FAST_LINK)).accepts, 3);
}

TEST_F(next_life_test, IsTheKindOfNodeThatItWasMadeOrStartedAs) {
    const auto rank_after = [](kolt_work_mode started_with) {
        auto life = std::make_unique<bridged_life>(std::vector<kept_interface>{SLOW, FAST, DOWNWARD});
        bridged *self = life->get();
        self->mode = self->settings.mode = started_with;
        self->mode_goes_on = saved_mode_read(self);
        ports_look(self);
        return std::pair{self->mode, rank_of(life->node().links.id)};
    };
    first_life([](bridged_life &life) {
        const request_handlers calls = calls_of(life.get());
        EXPECT_EQ(calls.set_bridge_mode(life.get(), "br0", 1), 0);
    });
    EXPECT_EQ(rank_after(KOLT_MODE_RE), (std::pair{KOLT_MODE_FAP, uint16_t{NODE_RANK_ROOT}}));
    EXPECT_EQ(rank_after(KOLT_MODE_HAP), (std::pair{KOLT_MODE_HAP, uint16_t{NODE_RANK_ROOT}}));
    unlink("/run/kolt-bridged/mode");
    EXPECT_EQ(rank_after(KOLT_MODE_RE), (std::pair{KOLT_MODE_RE, uint16_t{NODE_RANK_EXTENDER}}));
}

TEST_F(next_life_test, TakesABridgeWithoutAnAddressWhenItHasOne) {
    remove_interface("br0");
    make_bridge("br0", false);
    put_into_bridge("p1", "br0");
    take_out_of_bridge("p1"); // and the address with it
    const auto life = begin();
    EXPECT_EQ(life->node().ifindex, 0U);
    const auto knows = [&] { return node_find_port_index(&life->node(), port(FAST_LINK)) != nullptr; };
    put_into_bridge("p1", "br0");
    ASSERT_TRUE(life->hear_until(knows));
    const node_id id = life->node().links.id;
    EXPECT_NE(node_mac(id), 0U);
    take_out_of_bridge("p1");
    ASSERT_TRUE(life->hear_until([&] { return !knows(); }));
    put_into_bridge("p1", "br0");
    ASSERT_TRUE(life->hear_until(knows));
    EXPECT_EQ(life->node().links.id, id);
    EXPECT_NE(life->node().mac, fdb_mac{});
}

TEST_F(next_life_test, ForgetsAPortThatWentMeanwhile) {
    const uint32_t gone = port(FAST_LINK);
    first_life();
    remove_interface("p1");
    const auto life = begin();
    EXPECT_EQ(tree_slot(life->node().links, gone), NO_SLOT);
    EXPECT_EQ(life->word(gone), kolt_port{});
    EXPECT_EQ(life->word(port(SLOW_LINK)).accepts, 3);
}

TEST_F(next_life_test, ClosesALinkThatWasLostMeanwhile) {
    first_life();
    bring_down("e1");
    const auto life = begin();
    EXPECT_EQ(life->node().links.parent, node_mac(BEST));
    EXPECT_EQ(life->word(port(FAST_LINK)).flags & KOLT_PORT_OPEN, 0);
    EXPECT_EQ(life->word(port(SLOW_LINK)).accepts, 3);
}

TEST_F(next_life_test, KnowsTheClientsThatWerePlaced) {
    first_life(place);
    const auto life = begin();
    ASSERT_EQ(life->node().client_count, 1U);
    const placed_client &client = life->node().clients[0];
    EXPECT_EQ(client.mac, CLIENT);
    EXPECT_EQ(client.second_mac, life->node().mac) << "as kolt names it with each of them";
    EXPECT_EQ(client.wished, port(FAST_LINK));
    EXPECT_EQ(client.placed, port(FAST_LINK));
    EXPECT_EQ(place_of(*life), port(FAST_LINK));
    EXPECT_EQ(clients_remove(&life->node(), CLIENT.data()), 0);
    EXPECT_EQ(place_of(*life), 0U);
}

TEST_F(next_life_test, MovesClientsAndStreamsOffALinkThatWasLostMeanwhile) {
    first_life([this](bridged_life &life) {
        place(life);
        wires_.end(HOSTS).send(ip_frame{}.bytes());
        EXPECT_TRUE(comes_true([&] { return life->streams.count() == 1; }));
    });
    bring_down("e1");
    const auto life = begin();
    EXPECT_EQ(place_of(*life), port(SLOW_LINK));
    kolt_stream_record stream;
    ASSERT_EQ(life->get()->streams.read({&stream, 1}), 1U);
    EXPECT_EQ(stream.target, port(SLOW_LINK));
}

TEST_F(next_life_test, MovesClientsOffAPortThatWentMeanwhile) {
    first_life(place);
    take_out_of_bridge("p1");
    const auto life = begin();
    EXPECT_EQ(place_of(*life), port(SLOW_LINK));
}

TEST_F(next_life_test, TakesBackThePlaceOfAClientThatRoamedMeanwhile) {
    first_life([](bridged_life &life) {
        place(life);
        EXPECT_TRUE(life->programs.hd_remove(CLIENT.data())); // as a program does that hears it elsewhere
    });
    const auto life = begin();
    EXPECT_EQ(place_of(*life), 0U);
    EXPECT_EQ(life->node().client_count, 0U);
}

TEST_F(next_life_test, FinishesAPlacingThatHadOnlyBegun) {
    first_life([this](bridged_life &life) {
        place(life);
        EXPECT_TRUE(life->programs.hd_set(CLIENT.data(), port(SLOW_LINK)));
        EXPECT_TRUE(life->programs.hd_set(SECOND.data(), port(SLOW_LINK)));
    });
    const auto life = begin();
    EXPECT_EQ(place_of(*life), port(SLOW_LINK));
    EXPECT_EQ(place_of(*life, SECOND), port(SLOW_LINK));
    EXPECT_EQ(life->node().client_count, 2U);
}

TEST_F(next_life_test, LeavesEntriesAloneThatAreNotOfItsMaking) {
    first_life();
    rtnl_socket rtnl;
    ASSERT_EQ(rtnl.open(), 0);
    const fdb_place by_hand[] = {{SERVER, port(HOSTS)}};
    ASSERT_EQ(fdb_pin(rtnl, by_hand), 0);
    const auto life = begin();
    EXPECT_EQ(life->entry(SERVER).port, port(HOSTS));
}

TEST_F(next_life_test, ForgetsClientsOfATreeThatItDoesNotKnow) {
    first_life(place);
    ASSERT_EQ(unlink("/run/kolt-bridged/tree.br0"), 0);
    const auto life = begin();
    EXPECT_EQ(place_of(*life), 0U);
    EXPECT_EQ(life->node().client_count, 0U);
}

TEST_F(next_life_test, ClosesWhatItKnowsNothingOf) {
    first_life();
    ASSERT_EQ(unlink("/run/kolt-bridged/tree.br0"), 0);
    const auto life = begin();
    EXPECT_EQ(life->node().links.parent, 0U);
    EXPECT_EQ(life->word(port(FAST_LINK)).flags & KOLT_PORT_OPEN, 0);
    EXPECT_EQ(life->word(port(SLOW_LINK)).flags & KOLT_PORT_OPEN, 0);
}

TEST_F(next_life_test, ReleasesWhatTheOneBeforeHeld) {
    rtnl_socket rtnl;
    ASSERT_EQ(rtnl.open(), 0);
    ASSERT_EQ(bridge_port_set(rtnl, port(FAST_LINK), AS_FOUND), 0);
    first_life(place);
    const auto life = begin();
    EXPECT_TRUE(ports_release(life->get()));
    EXPECT_EQ(place_of(*life), 0U);
    EXPECT_EQ(life->port(port(FAST_LINK)).flags, AS_FOUND);
    EXPECT_EQ(life->port(port(SLOW_LINK)).flags, bridge_port_flags{});
    for (const size_t place : {SLOW_LINK, FAST_LINK, CHILD_LINK})
        EXPECT_FALSE(kolt_programs::attached(port(place)));
    for (const char *file : {"tree.br0", "port.p0", "port.p1", "port.p2"})
        EXPECT_FALSE(is_kept(file)) << file;
}

} // namespace
