// Which bridges are programmed, and what a refusal of the bridge library does: nothing but a message.
#include "loop_avoidance/node.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

const std::string OPERATION = "loop_avoidance_configure_bridge_with_mode";

class ConfigureBridges : public Node {
protected:
    call_list configure(kolt_work_mode mode = KOLT_MODE_FAP) {
        platform.calls.clear();
        loop_avoidance_configure_bridge_with_mode(&config_, mode);
        EXPECT_EQ(platform.live_buffers, 0);
        return programming();
    }
    static call_list bridge_calls(const std::string &bridge) {
        return {"bridgeSetTcpSP(" + bridge + ", 0)", "bridgeSetBridgeMode(" + bridge + ", 1)"};
    }
};

TEST_F(ConfigureBridges, FlowCacheIsConfiguredOnceBeforeAnyBridge) {
    add_bridge("br-lan");
    add_bridge("br-guest");
    EXPECT_EQ(configure(), call_list{"configure_fc_mode(1)"} + bridge_calls("br-lan") + bridge_calls("br-guest"));
    EXPECT_EQ(platform.calls.front(), "configure_fc_mode(1)");
}

TEST_F(ConfigureBridges, FlowCacheIsConfiguredWithoutAnyBridge) {
    EXPECT_THAT(configure(), ElementsAre("configure_fc_mode(1)"));
}

TEST_F(ConfigureBridges, BridgesAreProgrammedAlsoWithoutAFlowCache) {
    const installed_table none(nullptr);
    add_bridge("br-lan");
    EXPECT_EQ(configure(), bridge_calls("br-lan"));
}

TEST_F(ConfigureBridges, WhatTheFlowCacheSaysIsNotExamined) {
    for (const int result : {0, 1, -1}) {
        platform.fail("configure_fc_mode", result);
        EXPECT_THAT(configure(), ElementsAre("configure_fc_mode(1)"));
    }
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ConfigureBridges, BridgesAreProgrammedInConfigurationOrderWithTheirOwnPorts) {
    add_bridge("br-lan");
    add_bridge("br-guest", CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION);
    add_port("wlan0", KOLT_LINK_2G, 1, "br-guest");
    add_port("wlan1", KOLT_LINK_2G, 1, "br-lan");
    EXPECT_EQ(configure(), (call_list{"configure_fc_mode(1)"} + bridge_calls("br-lan") +
                            port_calls{.bridge = "br-lan", .name = "wlan1", .relay = 1, .broadcast = 1, .type = 2} +
                            bridge_calls("br-guest") + call_list{"bridgeSetFollowRE(br-guest, 1)"} +
                            port_calls{.bridge = "br-guest", .name = "wlan0", .relay = 1, .broadcast = 1, .type = 2}));
}

TEST_F(ConfigureBridges, EightBridgesAreProgrammed) {
    call_list expected = {"configure_fc_mode(1)"};
    for (const char *name : {"br0", "br1", "br2", "br3", "br4", "br5", "br6", "br7"}) {
        add_bridge(name);
        expected = expected + bridge_calls(name);
    }
    EXPECT_EQ(configure(), expected);
}

TEST_F(ConfigureBridges, BridgesThatAreInactiveOrNotFlaggedAreSkippedSilently) {
    add_bridge("br-down", CONFIG_LOOP_AVOIDANCE, false);
    add_bridge("br-plain", 0);
    add_bridge("br-path", CONFIG_PATH_SELECTION);
    add_bridge("br-lan");
    EXPECT_EQ(configure(), call_list{"configure_fc_mode(1)"} + bridge_calls("br-lan"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ConfigureBridges, BridgeIsAskedForItsActivityBeforeTheFlagIsLookedAt) {
    add_bridge("br-plain", 0);
    add_bridge("br-down", 0, false);
    (void)configure();
    EXPECT_EQ(count_calls("netlink_msg(br-plain, 0, 8, 38)"), 1U);
    EXPECT_EQ(count_calls("netlink_msg(br-down, 0, 8, 38)"), 1U);
}

TEST_F(ConfigureBridges, BridgeWithoutANameIsSkippedWithoutAQuery) {
    add_bridge("");
    EXPECT_THAT(configure(), ElementsAre("configure_fc_mode(1)"));
    EXPECT_EQ(platform.calls.size(), 1U);
}

TEST_F(ConfigureBridges, NameOfSixteenCharactersEndsWithItsField) {
    add_bridge("bridge-of16chars", CONFIG_LOOP_AVOIDANCE, false);
    config_.bridges[0].flags |= 0x41414140; // what stands behind the name
    platform.bridges["bridge-of16char"];    // the fake keeps 15 characters of a name
    EXPECT_EQ(configure(), call_list{"configure_fc_mode(1)"} + bridge_calls("bridge-of16chars"));
}

TEST_F(ConfigureBridges, BridgeIsSkippedAfterAMessageWithoutMemoryForTheQuery) {
    add_bridge("br-lan");
    add_bridge("br-guest");
    platform.fail("bridgeAllocTableBuf", 1, 1);
    EXPECT_EQ(configure(), call_list{"configure_fc_mode(1)"} + bridge_calls("br-guest"));
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_check_active_bridge", "Error: bridgeAllocTableBuf"}));
}

TEST_F(ConfigureBridges, BridgeWhosePortsCannotBeToldIsProgrammedWithoutPorts) {
    add_bridge("br-lan");
    add_port("wlan0", KOLT_LINK_2G);
    add_couple("wlan0", "guest0");
    const call_list expected = call_list{"configure_fc_mode(1)"} + bridge_calls("br-lan") +
                               call_list{"bridgeSetCouple(br-lan, wlan0, guest0, 1)"};
    platform.fail("netlink_msg", -1, 2); // the first one asks for the activity
    EXPECT_EQ(configure(), expected);
    platform.fail("bridgeAllocTableBuf", 1, 2);
    EXPECT_EQ(configure(), expected);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_get_active_ports", "Error: netlink_msg"},
                                      log_line{LOG_ERR, "kolt_get_active_ports", "Error: bridgeAllocTableBuf"}));
}

TEST_F(ConfigureBridges, PortThatIsNotConfiguredIsSkippedAfterAMessage) {
    add_bridge("br-lan");
    add_port("wlan0", KOLT_LINK_2G);
    const test_interface stranger("stranger");
    platform.bridges["br-lan"].insert(platform.bridges["br-lan"].begin(), stranger.index());
    EXPECT_EQ(configure().size(), 3 + 7U);
    EXPECT_THAT(logged_texts(), ElementsAre("Error: No such interface " + std::to_string(stranger.index())));
}

// ---- Refusals

struct refused_call {
    const char *function;
    size_t times; // that it is made in one configuration
};

void PrintTo(const refused_call &row, std::ostream *out) {
    *out << row.function;
}

class RefusedCall : public ConfigureBridges, public testing::WithParamInterface<refused_call> {
protected:
    void SetUp() override {
        ConfigureBridges::SetUp();
        add_bridge("br-lan", CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION);
        add_bridge("br-guest", CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION);
        add_port("plc0", KOLT_LINK_PLC);
        add_port("wlan0", KOLT_LINK_2G, 0);
        add_port("wlan1", KOLT_LINK_2G, 0, "br-guest");
        add_couple("wlan0", "guest0");
    }
};
INSTANTIATE_TEST_SUITE_P(Calls, RefusedCall,
                         testing::Values(refused_call{"bridgeSetTcpSP", 2}, refused_call{"bridgeSetBridgeMode", 2},
                                         refused_call{"bridgeSetFollowRE", 2}, refused_call{"bridgeSetIFCompat", 3},
                                         refused_call{"bridgeSetIFGroup", 3}, refused_call{"bridgeSetIFBroadcast", 3},
                                         refused_call{"bridgeSetIFClass", 3}, refused_call{"bridgeSetIFPath", 3},
                                         refused_call{"bridgeSetNeedha", 3}, refused_call{"bridgeSetIFType", 3},
                                         refused_call{"bridgeSetCouple", 2}),
                         [](const auto &row) { return std::string(row.param.function); });

TEST_P(RefusedCall, RefusedCallIsLoggedByNameEachTimeAndEverythingElseIsDone) {
    const call_list accepted = configure();
    ASSERT_THAT(logged(), IsEmpty());
    ASSERT_THAT(accepted, Contains(StartsWith(GetParam().function)).Times(GetParam().times));
    for (const int result : {1, -1, 22}) {
        clear_log();
        platform.fail(GetParam().function, result);
        EXPECT_EQ(configure(), accepted);
        const log_line refused{LOG_ERR, OPERATION, std::string("Error: ") + GetParam().function};
        EXPECT_EQ(logged(), std::vector<log_line>(GetParam().times, refused));
    }
}

TEST_P(RefusedCall, RefusalOfTheSecondCallAloneIsLoggedOnce) {
    const call_list accepted = configure();
    platform.fail(GetParam().function, 1, 2);
    EXPECT_EQ(configure(), accepted);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, OPERATION, std::string("Error: ") + GetParam().function}));
}

} // namespace
