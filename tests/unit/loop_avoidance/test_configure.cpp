// The full programming of a bridge: which calls, in which order, with which values. Relay flags, couples,
// refusals and several bridges have test files of their own.
#include "loop_avoidance/node.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto HIGHEST_MODE = static_cast<kolt_work_mode>(0xFFFFFFFF);

// ---- Whole sequences

// Five ports with a value of its own in every field.
class ConfigureSequence : public Configure {
protected:
    void SetUp() override {
        Configure::SetUp();
        add_bridge("br-lan");
        describe(add_port("eth0", KOLT_LINK_ETHERNET, 0), 1, 1, 0, 0);
        describe(add_port("plc0", KOLT_LINK_PLC, 1), 2, 0, 0, 1);
        describe(add_port("wlan0", KOLT_LINK_2G, 0), 0, 1, 0, 0);
        describe(add_port("wlan1.1", KOLT_LINK_5G, 0), 255, 1, 1, 1);
        describe(add_port("wlan2", KOLT_LINK_5G_2, 1), 3, 0, 2, 0);
    }
    static void describe(config_interface &port, uint8_t compat_group, uint8_t path, uint8_t bcast_class,
                         uint8_t needha) {
        port.compat_group = compat_group;
        port.path = path;
        port.class_ = bcast_class;
        port.needha = needha;
    }
    // What is expected of the five ports where power-line is a relay port or is not.
    static call_list ports(int plc_relay) {
        return port_calls{
                   .bridge = "br-lan", .name = "eth0", .compat_group = 1, .relay = 1, .broadcast = 1, .path = 1} +
               port_calls{.bridge = "br-lan",
                          .name = "plc0",
                          .compat_group = 2,
                          .relay = plc_relay,
                          .broadcast = plc_relay,
                          .needha = 1,
                          .type = 1} +
               port_calls{.bridge = "br-lan", .name = "wlan0", .broadcast = 1, .path = 1, .type = 2} +
               port_calls{.bridge = "br-lan",
                          .name = "wlan1.1",
                          .compat_group = 255,
                          .broadcast = 1,
                          .bcast_class = 1,
                          .path = 1,
                          .needha = 1,
                          .type = 3} +
               port_calls{.bridge = "br-lan",
                          .name = "wlan2",
                          .compat_group = 3,
                          .relay = 1,
                          .broadcast = 1,
                          .bcast_class = 2,
                          .type = 4};
    }
};

TEST_F(ConfigureSequence, RangeExtenderHasPowerLineAsNonrelay) {
    EXPECT_EQ(
        configure(KOLT_MODE_RE),
        (call_list{"configure_fc_mode(0)", "bridgeSetTcpSP(br-lan, 0)", "bridgeSetBridgeMode(br-lan, 0)"} + ports(0)));
}

TEST_F(ConfigureSequence, AccessPointHasPowerLineAsRelay) {
    EXPECT_EQ(
        configure(KOLT_MODE_FAP),
        (call_list{"configure_fc_mode(1)", "bridgeSetTcpSP(br-lan, 0)", "bridgeSetBridgeMode(br-lan, 1)"} + ports(1)));
}

TEST_F(ConfigureSequence, HapThatIsThePowerLineRootHasPowerLineAsRelay) {
    set_option("TrafficPlcRoot", "1");
    EXPECT_EQ(
        configure(KOLT_MODE_HAP),
        (call_list{"configure_fc_mode(2)", "bridgeSetTcpSP(br-lan, 0)", "bridgeSetBridgeMode(br-lan, 1)"} + ports(1)));
}

TEST_F(ConfigureSequence, HapThatIsNotThePowerLineRootHasPowerLineAsNonrelay) {
    EXPECT_EQ(
        configure(KOLT_MODE_HAP),
        (call_list{"configure_fc_mode(2)", "bridgeSetTcpSP(br-lan, 0)", "bridgeSetBridgeMode(br-lan, 1)"} + ports(0)));
}

TEST_F(ConfigureSequence, UnknownModeHasPowerLineAsNonrelay) {
    set_option("TrafficPlcRoot", "1");
    for (const kolt_work_mode mode : {KOLT_MODE_UNKNOWN, INVALID_MODE, HIGHEST_MODE}) {
        EXPECT_EQ(configure(mode), (call_list{"configure_fc_mode(" + std::to_string(mode) + ")",
                                              "bridgeSetTcpSP(br-lan, 0)", "bridgeSetBridgeMode(br-lan, 1)"} +
                                    ports(0)));
    }
}

TEST_F(ConfigureSequence, BridgeFollowsTheRangeExtenderWhereThePathIsSelected) {
    config_.bridges[0].flags = CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION;
    EXPECT_EQ(configure(KOLT_MODE_RE), (call_list{"configure_fc_mode(0)", "bridgeSetTcpSP(br-lan, 0)",
                                                  "bridgeSetBridgeMode(br-lan, 0)", "bridgeSetFollowRE(br-lan, 1)"} +
                                        ports(0)));
    EXPECT_EQ(configure(KOLT_MODE_FAP), (call_list{"configure_fc_mode(1)", "bridgeSetTcpSP(br-lan, 0)",
                                                   "bridgeSetBridgeMode(br-lan, 1)", "bridgeSetFollowRE(br-lan, 1)"} +
                                         ports(1)));
}

TEST_F(ConfigureSequence, SequenceIsTheSameTwice) {
    const call_list first = configure(KOLT_MODE_RE);
    EXPECT_EQ(configure(KOLT_MODE_RE), first);
}

// ---- Messages

TEST_F(ConfigureSequence, SequenceIsToldAtDebugLevel) {
    const at_log_level debug(2);
    (void)configure(KOLT_MODE_RE);
    const std::string configure = "loop_avoidance_configure_bridge_with_mode";
    const std::string pick = "loop_avoidance_pick_bcast_nonrelay_port";
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_DEBUG, configure, "Debug: configure duon bridge with mode RE"},
                                      log_line{LOG_DEBUG, configure, "Debug: name:eth0, compat_group:1, relay:1"},
                                      log_line{LOG_DEBUG, pick, "Debug: Pick wlan0 as broadcast nonrelay port!"},
                                      log_line{LOG_DEBUG, pick, "Debug: Pick wlan1.1 as broadcast nonrelay port!"},
                                      log_line{LOG_DEBUG, configure, "Debug: bcast_port_0 is wlan0"},
                                      log_line{LOG_DEBUG, configure, "Debug: bcast_port_1 is wlan1.1"}));
}

TEST_F(ConfigureSequence, SequenceIsNotToldBelowDebugLevel) {
    (void)configure(KOLT_MODE_RE);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Configure, MissingBroadcastPortIsToldAsTheSystemRendersIt) {
    const at_log_level debug(2);
    add_bridge("br-lan");
    add_port("wlan0", KOLT_LINK_2G, 1);
    (void)configure(KOLT_MODE_FAP);
    EXPECT_THAT(logged_texts(), ElementsAre("Debug: configure duon bridge with mode FAP",
                                            "Debug: bcast_port_0 is (null)", "Debug: bcast_port_1 is (null)"));
}

TEST_F(Configure, NameOfEveryModeIsTold) {
    const at_log_level debug(2);
    for (const kolt_work_mode mode : {KOLT_MODE_RE, KOLT_MODE_FAP, KOLT_MODE_HAP, KOLT_MODE_UNKNOWN, HIGHEST_MODE})
        (void)configure(mode);
    EXPECT_THAT(logged_texts(),
                ElementsAre("Debug: configure duon bridge with mode RE", "Debug: configure duon bridge with mode FAP",
                            "Debug: configure duon bridge with mode HAP",
                            "Debug: configure duon bridge with mode Invalid",
                            "Debug: configure duon bridge with mode Invalid"));
}

TEST(WorkModeName, NameOfEveryOtherModeIsInvalid) {
    EXPECT_STREQ(kolt_work_mode_name(KOLT_MODE_RE), "RE");
    EXPECT_STREQ(kolt_work_mode_name(KOLT_MODE_FAP), "FAP");
    EXPECT_STREQ(kolt_work_mode_name(KOLT_MODE_HAP), "HAP");
    EXPECT_STREQ(kolt_work_mode_name(KOLT_MODE_UNKNOWN), "Invalid");
    EXPECT_STREQ(kolt_work_mode_name(HIGHEST_MODE), "Invalid");
}

TEST_F(ConfigureSequence, LinksAreReadOnceForEachClass) {
    const at_log_level debug(2);
    for (const char *file : LINK_FILES)
        remove_file(file);
    (void)configure(KOLT_MODE_RE);
    EXPECT_EQ(logged_texts("kolt_check_link_state").size(), 10U);
}

// ---- The flag of a power-line broadcast port

TEST_F(Configure, PowerLineAsTheClassZeroBroadcastPortIsRemembered) {
    add_bridge("br-lan");
    add_port("plc0", KOLT_LINK_PLC);
    (void)configure(KOLT_MODE_RE);
    EXPECT_EQ(config_.param.bcast_port_plc, 1);
}

TEST_F(Configure, PowerLineIsForgottenWhenTheClassZeroBroadcastPortIsAnother) {
    add_bridge("br-lan");
    add_port("plc0", KOLT_LINK_PLC);
    add_port("wlan0", KOLT_LINK_2G, 0);
    config_.param.bcast_port_plc = 1;
    (void)configure(KOLT_MODE_RE);
    EXPECT_EQ(config_.param.bcast_port_plc, 0);
}

TEST_F(Configure, PowerLineFlagStaysWhenThereIsNoClassZeroBroadcastPort) {
    add_bridge("br-lan");
    add_port("plc0", KOLT_LINK_PLC).class_ = 1;
    for (const uint8_t before : {uint8_t{0}, uint8_t{1}}) {
        config_.param.bcast_port_plc = before;
        (void)configure(KOLT_MODE_RE);
        EXPECT_EQ(config_.param.bcast_port_plc, before);
    }
}

// ---- How many ports there are

TEST_F(Configure, BridgeWithoutPortsGetsItsModeAndCouplesAll) {
    const at_log_level debug(2);
    add_bridge("br-lan", CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION);
    add_couple("wlan0", "guest0");
    config_.param.bcast_port_plc = 1;
    for (const char *file : LINK_FILES)
        remove_file(file);
    EXPECT_THAT(configure(KOLT_MODE_FAP),
                ElementsAre("configure_fc_mode(1)", "bridgeSetTcpSP(br-lan, 0)", "bridgeSetBridgeMode(br-lan, 1)",
                            "bridgeSetFollowRE(br-lan, 1)", "bridgeSetCouple(br-lan, wlan0, guest0, 1)"));
    EXPECT_EQ(config_.param.bcast_port_plc, 1);
    EXPECT_THAT(logged_texts(), ElementsAre("Debug: configure duon bridge with mode FAP",
                                            "Debug: bcast_port_0 is (null)", "Debug: bcast_port_1 is (null)"))
        << "and no link state is read";
}

TEST_F(Configure, BridgeWithOnePortGetsItProgrammed) {
    add_bridge("br-lan");
    add_port("wlan0", KOLT_LINK_2G);
    EXPECT_EQ(configure(KOLT_MODE_RE).size(), 3 + 7U);
}

TEST_F(Configure, PortsAreProgrammedInTheBridgesOrder) {
    add_bridge("br-lan");
    add_port("wlan0", KOLT_LINK_2G);
    add_port("wlan1", KOLT_LINK_5G);
    std::reverse(platform.bridges["br-lan"].begin(), platform.bridges["br-lan"].end());
    const call_list calls = configure(KOLT_MODE_RE);
    EXPECT_EQ(calls[3], "bridgeSetIFCompat(br-lan, wlan1, 0)");
    EXPECT_EQ(calls[10], "bridgeSetIFCompat(br-lan, wlan0, 0)");
}

TEST_F(Configure, OnlyTheFirst128ActivePortsAreConfigured) {
    add_bridge("br-lan");
    for (int i = 0; i < 128; i++)
        add_port("p" + std::to_string(i), KOLT_LINK_2G);
    const call_list of_128 = configure(KOLT_MODE_RE);
    ASSERT_EQ(of_128.size(), 3 + 128 * 7U);
    EXPECT_EQ(of_128.back(), "bridgeSetIFType(br-lan, p127, 2)");
    // The first port once more, behind the last one that counts.
    platform.bridges["br-lan"].push_back(platform.bridges["br-lan"].front());
    EXPECT_EQ(configure(KOLT_MODE_RE), of_128);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Configure, PortThatIsReportedTwiceIsProgrammedTwice) {
    add_bridge("br-lan");
    add_port("wlan0", KOLT_LINK_2G);
    platform.bridges["br-lan"].assign(128, platform.bridges["br-lan"].front());
    EXPECT_EQ(configure(KOLT_MODE_RE).size(), 3 + 128 * 7U);
}

} // namespace
