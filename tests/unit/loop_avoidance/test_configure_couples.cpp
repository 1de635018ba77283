// The couples that the programming of a bridge declares.
#include "loop_avoidance/node.h"

#include <limits>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Couples : public Node {
protected:
    void SetUp() override {
        Node::SetUp();
        add_bridge("br-lan");
    }
    call_list declared() {
        platform.calls.clear();
        loop_avoidance_configure_bridge_with_mode(&config_, KOLT_MODE_FAP);
        call_list couples;
        for (const std::string &call : platform.calls) {
            if (call.rfind("bridgeSetCouple", 0) == 0)
                couples.push_back(call);
        }
        return couples;
    }
    static bool asked_for_neighbours() {
        return count_calls("uci_get_profile_eths(10)") != 0;
    }
};

TEST_F(Couples, CouplesAreDeclaredInOrderWithTheFirstOneMarked) {
    add_couple("wlan0", "guest0");
    add_couple("plc0", "guest1");
    add_couple("wlan2", "guest2");
    EXPECT_THAT(declared(),
                ElementsAre("bridgeSetCouple(br-lan, wlan0, guest0, 1)", "bridgeSetCouple(br-lan, plc0, guest1, 0)",
                            "bridgeSetCouple(br-lan, wlan2, guest2, 0)"));
}

TEST_F(Couples, CouplesAreDeclaredBehindTheLastPort) {
    add_port("wlan0", KOLT_LINK_2G);
    add_couple("wlan0", "guest0");
    (void)declared();
    const call_list calls = programming();
    EXPECT_EQ(calls.back(), "bridgeSetCouple(br-lan, wlan0, guest0, 1)");
    EXPECT_EQ(calls[calls.size() - 2], "bridgeSetIFType(br-lan, wlan0, 2)");
}

TEST_F(Couples, SixteenCouplesAreDeclared) {
    for (int i = 0; i < 16; i++)
        add_couple("wlan" + std::to_string(i), "guest" + std::to_string(i));
    const call_list couples = declared();
    ASSERT_EQ(couples.size(), 16U);
    EXPECT_EQ(couples[15], "bridgeSetCouple(br-lan, wlan15, guest15, 0)");
}

TEST_F(Couples, CouplesOfOtherThanWiredPortsQualifyWithoutAskingForNeighbours) {
    const at_log_level dump(3);
    for (const char *name : {"wlan0", "plc0.7", "Eth0", "et", "", "veth0", "xeth"})
        add_couple(name, "guest");
    EXPECT_EQ(declared().size(), 7U);
    EXPECT_FALSE(asked_for_neighbours());
    EXPECT_THAT(logged_texts("uci_get_value"), IsEmpty());
    EXPECT_THAT(logged_texts("kolt_check_eth_has_neigh"), IsEmpty());
}

TEST_F(Couples, CouplesOfWiredPortsQualifyWhereThereIsANeighbour) {
    set_neighbours("5", {"eth0", "eth1", "eth2"});
    for (const char *name : {"eth0", "eth1", "eth2"})
        add_couple(name, "guest");
    EXPECT_THAT(declared(),
                ElementsAre("bridgeSetCouple(br-lan, eth0, guest, 1)", "bridgeSetCouple(br-lan, eth2, guest, 0)"));
    EXPECT_EQ(count_calls("uci_get_profile_eths(10)"), 3U) << "asked afresh for each";
}

TEST_F(Couples, FirstCoupleThatQualifiesIsMarkedWhereverItStands) {
    set_neighbours("0", {"eth0"});
    add_couple("eth0", "guest0");
    add_couple("wlan0", "guest1");
    EXPECT_THAT(declared(), ElementsAre("bridgeSetCouple(br-lan, wlan0, guest1, 1)"));
}

TEST_F(Couples, CouplesOfWiredPortsQualifyOnThePowerLineBackhaulVlan) {
    set_neighbours("0", {"eth0", "eth0.33"});
    config_.param.plc_vlan_backhaul_id = 33;
    add_couple("eth0", "guest0");
    add_couple("eth0.33", "guest1");
    EXPECT_THAT(declared(), ElementsAre("bridgeSetCouple(br-lan, eth0.33, guest1, 1)"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Couples, VlanCountsWhereverItsTextStands) {
    set_neighbours("0", {"eth0"});
    config_.param.plc_vlan_backhaul_id = 3;
    for (const char *name : {"eth3", "eth0.3", "eth0.30", "eth13", "eth0", "eth.2"})
        add_couple(name, "guest");
    EXPECT_THAT(declared(),
                ElementsAre("bridgeSetCouple(br-lan, eth3, guest, 1)", "bridgeSetCouple(br-lan, eth0.3, guest, 0)",
                            "bridgeSetCouple(br-lan, eth0.30, guest, 0)", "bridgeSetCouple(br-lan, eth13, guest, 0)"));
}

TEST_F(Couples, VlanZeroIsNoVlan) {
    set_neighbours("0", {"eth0"});
    config_.param.plc_vlan_backhaul_id = 0;
    add_couple("eth0", "guest");
    EXPECT_THAT(declared(), IsEmpty());
}

TEST_F(Couples, VlanOfManyDigitsAndASignCounts) {
    set_neighbours("0", {"eth0"});
    add_couple("eth-2147483648", "guest0");
    add_couple("eth2147483647", "guest1");
    config_.param.plc_vlan_backhaul_id = std::numeric_limits<int32_t>::min();
    EXPECT_THAT(declared(), ElementsAre("bridgeSetCouple(br-lan, eth-2147483648, guest0, 1)"));
    config_.param.plc_vlan_backhaul_id = std::numeric_limits<int32_t>::max();
    EXPECT_THAT(declared(), ElementsAre("bridgeSetCouple(br-lan, eth2147483647, guest1, 1)"));
}

// The neighbours are asked for before the VLAN is looked at, with all that this logs.
TEST_F(Couples, NeighboursOfWiredPortsAreAskedForAlsoOnTheVlan) {
    set_neighbours("0", {"eth0"});
    config_.param.plc_vlan_backhaul_id = 33;
    add_couple("eth0.33", "guest");
    EXPECT_EQ(declared().size(), 1U);
    EXPECT_TRUE(asked_for_neighbours());
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_check_eth_has_neigh",
                                               "Error: can't find ifname[eth0.33] in eth_ifname"}));
}

TEST_F(Couples, WiredPortsDoNotQualifyWhereTheNeighboursCannotBeTold) {
    add_couple("eth0", "guest0");
    add_couple("eth", "guest1");
    EXPECT_THAT(declared(), IsEmpty());
    const log_line unread{LOG_ERR, "uci_get_value", "Error: fail to get ptr tolmux.tolmux.eth_HasNeigh "};
    EXPECT_THAT(logged(), ElementsAre(unread, unread));
}

TEST_F(Couples, FirstCoupleOfEveryBridgeIsMarked) {
    add_bridge("br-guest");
    add_couple("wlan0", "guest0");
    add_couple("wlan1", "guest1");
    EXPECT_THAT(declared(),
                ElementsAre("bridgeSetCouple(br-lan, wlan0, guest0, 1)", "bridgeSetCouple(br-lan, wlan1, guest1, 0)",
                            "bridgeSetCouple(br-guest, wlan0, guest0, 1)",
                            "bridgeSetCouple(br-guest, wlan1, guest1, 0)"));
}

TEST_F(Couples, MarkStaysWithTheFirstCoupleThoughItIsRefused) {
    add_couple("wlan0", "guest0");
    add_couple("wlan1", "guest1");
    platform.fail("bridgeSetCouple", 1, 1);
    EXPECT_THAT(declared(),
                ElementsAre("bridgeSetCouple(br-lan, wlan0, guest0, 1)", "bridgeSetCouple(br-lan, wlan1, guest1, 0)"));
    EXPECT_THAT(logged(),
                ElementsAre(log_line{LOG_ERR, "loop_avoidance_configure_bridge_with_mode", "Error: bridgeSetCouple"}));
}

TEST_F(Couples, NamesOfSixteenCharactersEndWithTheirFields) {
    config_.param.plc_vlan_backhaul_id = 77; // stands in the field behind the name only
    set_neighbours("1", {"eth-of-16-chars"});
    add_couple("wlan-of-16-chars", "guest-of16-chars");
    add_couple("eth--of-16-chars", "77-guest");
    EXPECT_THAT(declared(), ElementsAre("bridgeSetCouple(br-lan, wlan-of-16-chars, guest-of16-chars, 1)"));
    EXPECT_THAT(logged_texts(), ElementsAre("Error: can't find ifname[eth--of-16-chars] in eth_ifname"));
}

} // namespace
