// Which ports may carry broadcast.
#include "loop_avoidance/broadcast.h"
#include "loop_avoidance/node.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const std::vector<std::string> ALL_LINKS_MISSING = {
    "Debug: parse link state /tmp/eth_runtime_info", "Debug: parse link state /tmp/plc_runtime_info",
    "Debug: parse link state /tmp/wifi_runtime_info.2g", "Debug: parse link state /tmp/wifi_runtime_info.5g",
    "Debug: parse link state /tmp/wifi_runtime_info.5g2"};

// Ports by hand: the choice itself asks neither the bridge nor the kernel.
class Choice : public Node {
protected:
    config_interface *make(kolt_link_type type, uint8_t bcast_class = 0, uint8_t relay = 0) {
        config_interface &port = config_.interfaces[config_.interface_num++];
        set_name(port.name, "port" + std::to_string(config_.interface_num));
        port.type = type;
        port.class_ = bcast_class;
        port.relay = relay;
        ports_.push_back(&port);
        return &port;
    }
    config_interface *pick(uint8_t bcast_class = 0) {
        return loop_avoidance_pick_bcast_nonrelay_port(ports_, bcast_class);
    }
    static void set_all_links(bool up) {
        for (const kolt_link_type type : KOLT_LINKS)
            set_link(type, up);
    }
    std::vector<config_interface *> ports_;
};

TEST_F(Choice, NoPortIsChosenAndNoLinkReadWithoutPorts) {
    const at_log_level debug(2);
    EXPECT_EQ(loop_avoidance_pick_bcast_nonrelay_port({}, 0), nullptr);
    EXPECT_EQ(loop_avoidance_pick_bcast_nonrelay_port({}, 1), nullptr);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Choice, EveryLinkIsReadOnceInOrder) {
    const at_log_level debug(2);
    make(KOLT_LINK_5G, 0, 1);
    EXPECT_EQ(pick(), nullptr);
    EXPECT_THAT(logged_texts("kolt_check_link_state"), ElementsAreArray(ALL_LINKS_MISSING));
    EXPECT_EQ(logged().size(), 5U) << "and says nothing of a port that was not chosen";
}

TEST_F(Choice, ChosenPortIsLoggedAtDebugLevel) {
    set_all_links(true);
    make(KOLT_LINK_5G);
    {
        const at_log_level info(1);
        (void)pick();
        EXPECT_THAT(logged(), IsEmpty());
    }
    const at_log_level debug(2);
    (void)pick();
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_DEBUG, "loop_avoidance_pick_bcast_nonrelay_port",
                                               "Debug: Pick port1 as broadcast nonrelay port!"}));
}

TEST_F(Choice, NameThatFillsItsFieldIsLoggedWithoutWhatFollows) {
    const at_log_level debug(2);
    set_all_links(true);
    set_name(make(KOLT_LINK_5G)->name, "name-of-16-chars");
    (void)pick();
    EXPECT_THAT(logged_texts(), ElementsAre("Debug: Pick name-of-16-chars as broadcast nonrelay port!"));
}

TEST_F(Choice, OnlyNonrelayPortsOfTheClassAreConsidered) {
    set_all_links(true);
    make(KOLT_LINK_ETHERNET, 0, 1);
    make(KOLT_LINK_ETHERNET, 1, 0);
    make(KOLT_LINK_ETHERNET, 2, 0);
    config_interface *of_class_0 = make(KOLT_LINK_2G, 0, 0);
    EXPECT_EQ(pick(0), of_class_0);
    EXPECT_EQ(pick(1), ports_[1]);
    EXPECT_EQ(pick(3), nullptr);
}

TEST_F(Choice, AnyRelayFlagButOneIsNonrelay) {
    set_all_links(true);
    make(KOLT_LINK_ETHERNET, 0, 1);
    config_interface *odd = make(KOLT_LINK_2G, 0, 2);
    EXPECT_EQ(pick(), odd);
}

TEST_F(Choice, FirstOfThePortsOfOneTypeIsChosen) {
    for (const kolt_link_type type : KOLT_LINKS) {
        set_link(type, true);
        ports_.clear();
        config_interface *first = make(type);
        make(type);
        EXPECT_EQ(pick(), first) << type;
        set_link(type, false);
        EXPECT_EQ(pick(), first) << type;
    }
}

// Power-line never claims to carry broadcast, so its 4 counts as 0: 2.4 GHz 1, 5 GHz 2, second 5 GHz 3, Ethernet 5.
TEST_F(Choice, HigherOfTwoLinksThatAreUpIsChosen) {
    set_all_links(true);
    const kolt_link_type rising[] = {KOLT_LINK_PLC, KOLT_LINK_2G, KOLT_LINK_5G, KOLT_LINK_5G_2, KOLT_LINK_ETHERNET};
    for (size_t low = 0; low < 5; low++) {
        for (size_t high = low + 1; high < 5; high++) {
            ports_.clear();
            config_.interface_num = 0;
            make(rising[low]);
            make(rising[high]);
            EXPECT_EQ(pick()->type, rising[high]);
            std::swap(ports_[0], ports_[1]);
            EXPECT_EQ(pick()->type, rising[high]);
        }
    }
}

TEST_F(Choice, AnyLinkThatIsUpBeatsOneThatIsDown) {
    for (const kolt_link_type down : KOLT_LINKS) {
        for (const kolt_link_type up : KOLT_LINKS) {
            if (up == down)
                continue;
            set_all_links(true);
            set_link(down, false);
            ports_.clear();
            config_.interface_num = 0;
            make(down);
            make(up);
            EXPECT_EQ(pick()->type, up) << down << " is down";
        }
    }
}

TEST_F(Choice, FirstPortIsChosenWhenAllLinksAreDown) {
    set_all_links(false);
    for (const kolt_link_type first : KOLT_LINKS) {
        for (const kolt_link_type second : KOLT_LINKS) {
            ports_.clear();
            config_.interface_num = 0;
            make(first);
            make(second);
            EXPECT_EQ(pick(), ports_[0]);
        }
    }
}

TEST_F(Choice, LinkWithoutARuntimeFileIsDown) {
    set_link(KOLT_LINK_2G, true);
    make(KOLT_LINK_ETHERNET);
    config_interface *up = make(KOLT_LINK_2G);
    EXPECT_EQ(pick(), up);
}

TEST_F(Choice, OnlyCandidateIsChosenThoughItsLinkIsDown) {
    set_all_links(false);
    make(KOLT_LINK_ETHERNET, 0, 1);
    config_interface *only = make(KOLT_LINK_PLC);
    EXPECT_EQ(pick(), only);
}

TEST_F(Choice, EthernetBeatsPowerLineWithBothUp) {
    set_all_links(true);
    make(KOLT_LINK_PLC);
    config_interface *ethernet = make(KOLT_LINK_ETHERNET);
    EXPECT_EQ(pick(), ethernet);
}

TEST_F(Choice, PowerLineThatIsUpBeatsEthernetThatIsDown) {
    set_link(KOLT_LINK_ETHERNET, false);
    set_link(KOLT_LINK_PLC, true);
    make(KOLT_LINK_ETHERNET);
    config_interface *plc = make(KOLT_LINK_PLC);
    EXPECT_EQ(pick(), plc);
}

TEST_F(Choice, SecondFiveGhzRadioBeatsPowerLineWithBothUp) {
    set_all_links(true);
    make(KOLT_LINK_PLC);
    config_interface *radio = make(KOLT_LINK_5G_2);
    EXPECT_EQ(pick(), radio);
}

TEST_F(Choice, OnlyTheFirst128PortsAreLookedAt) {
    set_all_links(true);
    for (int i = 0; i < 127; i++)
        make(KOLT_LINK_2G, 0, 1);
    config_interface *last = make(KOLT_LINK_2G);
    EXPECT_EQ(pick(), last);
    last->relay = 1;
    config_interface beyond;
    beyond.type = KOLT_LINK_ETHERNET;
    ports_.push_back(&beyond);
    EXPECT_EQ(pick(), nullptr);
}

TEST_F(Choice, LinksAreReadAfreshEachTime) {
    make(KOLT_LINK_2G);
    make(KOLT_LINK_5G);
    set_link(KOLT_LINK_5G, true);
    EXPECT_EQ(pick(), ports_[1]);
    set_link(KOLT_LINK_5G, false);
    EXPECT_EQ(pick(), ports_[0]);
}

TEST(BroadcastPreference, PreferenceDecidesWithoutAnyFile) {
    config_interface low;
    config_interface high;
    low.type = KOLT_LINK_PLC;
    high.type = KOLT_LINK_5G;
    config_interface *ports[] = {&low, &high};
    EXPECT_EQ(choose_bcast_port(ports, 0, {5, 4, 1, 2, 3}), &low);
    EXPECT_EQ(choose_bcast_port(ports, 0, {5, 0, 1, 2, 3}), &high);
    EXPECT_EQ(choose_bcast_port(ports, 0, {-1, -1, -1, -1, -1}), &low);
    EXPECT_EQ(choose_bcast_port(ports, 0, {-1, -1, -1, 0, -1}), &high);
    EXPECT_EQ(choose_bcast_port(ports, 1, {5, 4, 1, 2, 3}), nullptr);
    EXPECT_EQ(choose_bcast_port({}, 0, {5, 4, 1, 2, 3}), nullptr);
}

// ---- Re-applying the broadcast permission

class SetBcastPort : public Node {};

std::string permission(const std::string &arguments) {
    return "bridgeSetIFBroadcast(" + arguments + ")";
}

TEST_F(SetBcastPort, PermissionOfEveryPortAndNothingElseIsProgrammed) {
    add_bridge("br-lan", CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION);
    add_port("eth0", KOLT_LINK_ETHERNET, 1);
    add_port("eth1", KOLT_LINK_ETHERNET, 0);
    add_port("plc0", KOLT_LINK_PLC, 0);
    add_port("wlan0", KOLT_LINK_2G, 0).class_ = 1;
    add_port("wlan1", KOLT_LINK_5G, 0).class_ = 1;
    add_port("wlan2", KOLT_LINK_5G_2, 0).class_ = 2;
    add_couple("wlan0", "guest0");
    for (const kolt_link_type type : KOLT_LINKS)
        set_link(type, true);
    set_work_mode("RE");
    loop_avoidance_set_bcast_port(&config_);
    EXPECT_THAT(platform.programming(), ElementsAre(permission("br-lan, eth0, 1"), permission("br-lan, eth1, 1"),
                                                    permission("br-lan, plc0, 0"), permission("br-lan, wlan0, 0"),
                                                    permission("br-lan, wlan1, 1"), permission("br-lan, wlan2, 0")));
    EXPECT_EQ(config_.interfaces[1].relay, 0) << "no relay rewrite is made here";
    EXPECT_EQ(config_.interfaces[2].relay, 0);
}

TEST_F(SetBcastPort, LinksAreReadOnceForEachOfTheTwoClasses) {
    const at_log_level debug(2);
    add_bridge("br-lan");
    add_port("wlan0", KOLT_LINK_2G, 0);
    add_port("wlan1", KOLT_LINK_5G, 0).class_ = 1;
    loop_avoidance_set_bcast_port(&config_);
    std::vector<std::string> expected = ALL_LINKS_MISSING;
    expected.push_back("Debug: Pick wlan0 as broadcast nonrelay port!");
    expected.insert(expected.end(), ALL_LINKS_MISSING.begin(), ALL_LINKS_MISSING.end());
    expected.push_back("Debug: Pick wlan1 as broadcast nonrelay port!");
    EXPECT_EQ(logged_texts(), expected);
}

TEST_F(SetBcastPort, PowerLineFlagIsLeftAlone) {
    add_bridge("br-lan");
    add_port("plc0", KOLT_LINK_PLC, 0);
    loop_avoidance_set_bcast_port(&config_);
    EXPECT_EQ(config_.param.bcast_port_plc, 0);
    EXPECT_THAT(platform.programming(), ElementsAre(permission("br-lan, plc0, 1")));
}

TEST_F(SetBcastPort, NoLinkIsReadAndNothingCalledWithoutPorts) {
    const at_log_level debug(2);
    add_bridge("br-lan");
    loop_avoidance_set_bcast_port(&config_);
    EXPECT_THAT(platform.programming(), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(SetBcastPort, BridgesThatAreInactiveOrNotFlaggedAreSkipped) {
    add_bridge("br-down", CONFIG_LOOP_AVOIDANCE, false);
    add_bridge("br-other", CONFIG_PATH_SELECTION);
    add_bridge("br-lan");
    add_bridge("br-guest");
    add_port("wlan0", KOLT_LINK_2G, 1, "br-other");
    add_port("wlan1", KOLT_LINK_2G, 1, "br-lan");
    add_port("wlan2", KOLT_LINK_2G, 1, "br-guest");
    loop_avoidance_set_bcast_port(&config_);
    EXPECT_THAT(platform.programming(), ElementsAre(permission("br-lan, wlan1, 1"), permission("br-guest, wlan2, 1")));
    EXPECT_EQ(count_calls("netlink_msg(br-other, 0, 8, 38)"), 1U) << "activity is asked before the flag";
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(SetBcastPort, RefusalIsLoggedAndTheNextPortIsProgrammed) {
    add_bridge("br-lan");
    add_bridge("br-guest");
    add_port("wlan0", KOLT_LINK_2G);
    add_port("wlan1", KOLT_LINK_5G);
    add_port("wlan2", KOLT_LINK_5G_2, 1, "br-guest");
    const log_line refused{LOG_ERR, "loop_avoidance_set_bcast_port", "Error: bridgeSetIFBroadcast"};
    platform.fail("bridgeSetIFBroadcast", -1, 1);
    loop_avoidance_set_bcast_port(&config_);
    EXPECT_THAT(logged(), ElementsAre(refused));
    EXPECT_EQ(platform.programming().size(), 3U);
    platform.fail("bridgeSetIFBroadcast", 1);
    loop_avoidance_set_bcast_port(&config_);
    EXPECT_THAT(logged(), ElementsAre(refused, refused, refused, refused));
    EXPECT_EQ(platform.programming().size(), 6U);
}

TEST_F(SetBcastPort, EveryBufferIsFreed) {
    add_bridge("br-lan");
    add_port("wlan0", KOLT_LINK_2G);
    loop_avoidance_set_bcast_port(&config_);
    EXPECT_EQ(platform.live_buffers, 0);
}

} // namespace
