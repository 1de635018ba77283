// Bridges and ports that kolt-bridged does not take, and what it does to such a port.
#include "bridged/ports.h"
#include "bridged/settle.h"
#include "kernel/net/offload.h"
#include "linux/support/bridged_test.h"
#include "support/log_capture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <fstream>
#include <linux/if_bridge.h>
#include <net/if.h>

using testing::ElementsAre;
using testing::StartsWith;

// In place of asking whether hardware forwards for an interface, which no interface of a test's has.
offload_findings asked_offload_find(rtnl_socket &rtnl,
                                    const char *ifname) asm("__wrap__Z12offload_findR11rtnl_socketPKc");
offload_findings real_offload_find(rtnl_socket &rtnl,
                                   const char *ifname) asm("__real__Z12offload_findR11rtnl_socketPKc");

namespace {
std::string forwarded_by_hardware;
std::string not_known_of;
} // namespace

offload_findings asked_offload_find(rtnl_socket &rtnl, const char *ifname) {
    offload_findings found = real_offload_find(rtnl, ifname);
    if (ifname == forwarded_by_hardware)
        found.tc_offload = judge_tc_offload(ifname, 0, true);
    if (ifname == not_known_of)
        found.tc_offload = judge_tc_offload(ifname, EPERM, false);
    return found;
}

namespace {

// A bridge that runs a spanning tree of its own.
class refused_bridge_test : public testing::Test {
protected:
    refused_bridge_test() {
        set_spanning_tree(1);
        clear_log();
        ports_look(life_.get());
    }
    void set_spanning_tree(int state) {
        std::ofstream("/sys/class/net/br0/bridge/stp_state") << state;
        bring_down("br0"); // which is announced
        bring_up("br0");
    }
    bridged_wires wires_{1};
    bridged_life life_{{SLOW}};
};

TEST_F(refused_bridge_test, IsLeftAloneAndToldOnce) {
    set_spanning_tree(1);
    ASSERT_TRUE(life_.hear_until([] { return true; })); // all of it has been announced by now
    EXPECT_EQ(life_.node().ifindex, 0U);
    EXPECT_FALSE(kolt_programs::attached(wires_.port(0)));
    EXPECT_THAT(logged_texts(), ElementsAre(StartsWith("Error: br0: refused: it runs a spanning tree")));
}

TEST_F(refused_bridge_test, IsToldOnceWhenItWasKeptBefore) {
    set_spanning_tree(0);
    ASSERT_TRUE(life_.hear_until([this] { return life_.node().ifindex != 0; }));
    for (int times = 0; times < 2; times++) {
        clear_log();
        set_spanning_tree(1);
        ASSERT_TRUE(life_.hear_until([] { return !logged().empty(); }));
        set_spanning_tree(1);
        ASSERT_TRUE(life_.hear_until([] { return true; }));
        EXPECT_THAT(logged_texts(),
                    ElementsAre(StartsWith("Error: br0: stays guarded, though it now runs a spanning")));
        EXPECT_TRUE(kolt_programs::attached(wires_.port(0)));
        set_spanning_tree(0);
        ASSERT_TRUE(life_.hear_until([] { return true; }));
    }
}

TEST_F(refused_bridge_test, IsKeptOnceItIsFit) {
    set_spanning_tree(0);
    ASSERT_TRUE(life_.hear_until([this] { return life_.node().ifindex != 0; }));
    EXPECT_TRUE(kolt_programs::attached(wires_.port(0)));
    EXPECT_NE(tree_slot(life_.node().links, wires_.port(0)), NO_SLOT);
}

// A port that cannot be guarded: the programs' table ends before its number.
class refused_test : public testing::Test {
protected:
    static constexpr uint32_t REFUSED = 70000;

    refused_test() {
        make_wire("p4", "e4", 1500, REFUSED);
        put_into_bridge("p4", "br0");
        bring_up("p4");
        bring_up("e4");
        EXPECT_TRUE(comes_true([this] { return state() == BR_STATE_FORWARDING; }));
        EXPECT_EQ(bridge_port_set(rtnl_, REFUSED, AS_FOUND), 0);
        begin();
    }
    void begin(const std::vector<kept_interface> &interfaces = {{.name = "p4", .relay = 1}}) {
        life_.reset();
        life_ = std::make_unique<bridged_life>(interfaces);
        clear_log();
        ports_look(life_->get());
    }
    bridge_port described() {
        bridge_port port;
        EXPECT_EQ(bridge_port_get(rtnl_, if_nametoindex("p4"), &port), 0);
        return port;
    }
    uint8_t state() {
        return described().state;
    }
    // Whether a frame for all passes between the refused port and another one.
    [[nodiscard]] bool passes(const wire_end &from, const wire_end &to) {
        (void)to.count_arrived(1);
        from.send(ethernet_frame(BROADCAST, CLIENT, 0x9000));
        return !to.receive(50).empty();
    }

    bridged_wires wires_{2};
    rtnl_socket rtnl_;
    int opened_ = rtnl_.open();
    std::unique_ptr<bridged_life> life_;
};

TEST_F(refused_test, TheBridgeKeepsItClosed) {
    EXPECT_EQ(state(), BR_STATE_DISABLED);
    const wire_end end("e4");
    EXPECT_FALSE(passes(end, wires_.end(0)));
    EXPECT_FALSE(passes(wires_.end(0), end));
    EXPECT_TRUE(passes(wires_.end(1), wires_.end(0))) << "the others are none of its business";
}

TEST_F(refused_test, IsToldInOneLine) {
    settle(&life_->node());
    EXPECT_THAT(logged_texts(), ElementsAre(StartsWith("Error: p4: refused: interface 70000 cannot be ")));
}

TEST_F(refused_test, StaysClosedWhenItsCarrierComesBack) {
    bring_down("e4");
    ASSERT_TRUE(comes_true([this] {
        link_info link;
        return link_get(rtnl_, REFUSED, &link) == 0 && !link_works(link);
    }));
    bring_up("e4");
    ASSERT_TRUE(comes_true([this] { return state() == BR_STATE_FORWARDING; })) << "the kernel has opened it";
    EXPECT_EQ(described().flags, SENDS_NOTHING) << "yet it sends nothing there";
    EXPECT_TRUE(life_->hear_until([this] { return state() == BR_STATE_DISABLED; }));
    EXPECT_EQ(logged().size(), 1U);
}

TEST_F(refused_test, IsPutBackAsItWasFound) {
    begin();
    EXPECT_EQ(state(), BR_STATE_DISABLED);
    EXPECT_TRUE(ports_release(life_->get()));
    EXPECT_EQ(state(), BR_STATE_FORWARDING);
    EXPECT_EQ(described().flags, AS_FOUND);
    EXPECT_FALSE(is_kept("port.p4"));
}

TEST_F(refused_test, IsForgottenWhenItLeaves) {
    take_out_of_bridge("p4");
    ASSERT_TRUE(life_->hear_until([this] { return node_find_port(&life_->node(), "p4") == nullptr; }));
    EXPECT_FALSE(is_kept("port.p4"));
}

TEST_F(refused_test, OpensAgainOnceItCanBeGuarded) {
    life_.reset();
    remove_interface("p4");
    make_wire("p4", "e4");
    put_into_bridge("p4", "br0");
    bring_up("p4");
    bring_up("e4");
    ASSERT_TRUE(comes_true([this] { return state() == BR_STATE_FORWARDING; }));
    ASSERT_EQ(bridge_port_set_forwarding(rtnl_, if_nametoindex("p4"), false), 0);
    begin();
    EXPECT_TRUE(kolt_programs::attached(if_nametoindex("p4")));
    EXPECT_EQ(state(), BR_STATE_FORWARDING);
    EXPECT_TRUE(ports_release(life_->get()));
    EXPECT_EQ(described().flags, AS_FOUND);
}

TEST_F(refused_test, BecauseHardwareForwardsPastThePrograms) {
    forwarded_by_hardware = "p1";
    begin({{.name = "p1", .relay = 1}});
    forwarded_by_hardware = "";
    EXPECT_THAT(logged_texts(), ElementsAre(StartsWith("Error: p1: refused: p1: hw-tc-offload is on")));
    EXPECT_FALSE(kolt_programs::attached(wires_.port(1)));
    EXPECT_EQ(life_->port(wires_.port(1)).state, BR_STATE_DISABLED);
    EXPECT_FALSE(passes(wires_.end(1), wires_.end(0)));
    begin({{.name = "p1", .relay = 1}});
    EXPECT_TRUE(kolt_programs::attached(wires_.port(1)));
    EXPECT_EQ(life_->port(wires_.port(1)).state, BR_STATE_FORWARDING) << "it is closed by the programs now";
    EXPECT_FALSE(passes(wires_.end(1), wires_.end(0)));
}

TEST_F(refused_test, OneOfWhichItIsNotKnownIsTakenAndTold) {
    not_known_of = "p1";
    begin({{.name = "p1", .relay = 1}});
    not_known_of = "";
    EXPECT_THAT(logged_texts(),
                ElementsAre("Info: p1: cannot find out whether hw-tc-offload is on: Operation not permitted"));
    EXPECT_TRUE(kolt_programs::attached(wires_.port(1)));
}

void forward_what_is_of_the_link(const std::string &port, const char *mask) {
    std::ofstream("/sys/class/net/" + port + "/brport/group_fwd_mask") << mask;
}

TEST_F(refused_test, BecauseItForwardsWhatIsMeantForTheOtherEnd) {
    forward_what_is_of_the_link("p1", "0x8");
    begin({{.name = "p1", .relay = 1}});
    EXPECT_THAT(logged_texts(), ElementsAre(StartsWith("Error: p1: refused: it forwards frames that are meant for ")));
    EXPECT_EQ(life_->port(wires_.port(1)).state, BR_STATE_DISABLED);
}

TEST_F(refused_test, AKeptPortThatForwardsWhatIsMeantForTheOtherEndIsToldOnce) {
    begin({{.name = "p1", .relay = 1}});
    forward_what_is_of_the_link("p1", "0x8");
    for (int times = 0; times < 2; times++) {
        bring_down("e1");
        bring_up("e1");
        ASSERT_TRUE(life_->hear_until([] { return !logged().empty(); }));
    }
    EXPECT_THAT(logged_texts(),
                ElementsAre(StartsWith("Error: p1: stays guarded, though it now forwards frames that")));
    EXPECT_TRUE(kolt_programs::attached(wires_.port(1)));
}

} // namespace
