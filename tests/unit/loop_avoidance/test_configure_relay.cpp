// The relay flags that the programming of a bridge rewrites.
#include "loop_avoidance/broadcast.h"
#include "loop_avoidance/node.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(Configure, PowerLineRelayFlagOutlivesTheModeUntilTheNextOne) {
    add_bridge("br-lan");
    const config_interface &plc = add_port("plc0", KOLT_LINK_PLC, 0);
    (void)configure(KOLT_MODE_FAP);
    EXPECT_EQ(plc.relay, 1);
    platform.calls.clear();
    loop_avoidance_set_bcast_port(&config_);
    EXPECT_THAT(programming(), ElementsAre("bridgeSetIFBroadcast(br-lan, plc0, 1)"));
    EXPECT_EQ(plc.relay, 1);
    (void)configure(KOLT_MODE_RE);
    EXPECT_EQ(plc.relay, 0);
    (void)configure(KOLT_MODE_HAP);
    EXPECT_EQ(plc.relay, 0);
    set_option("TrafficPlcRoot", "1");
    (void)configure(KOLT_MODE_HAP);
    EXPECT_EQ(plc.relay, 1);
    (void)configure(KOLT_MODE_UNKNOWN);
    EXPECT_EQ(plc.relay, 0);
}

TEST_F(Configure, EthernetIsRelayInEveryModeWhateverTheConfigurationSays) {
    add_bridge("br-lan");
    config_interface &ethernet = add_port("eth0", KOLT_LINK_ETHERNET);
    for (const kolt_work_mode mode : {KOLT_MODE_RE, KOLT_MODE_FAP, KOLT_MODE_HAP, KOLT_MODE_UNKNOWN, INVALID_MODE}) {
        ethernet.relay = 0;
        EXPECT_EQ(configure(mode)[4], "bridgeSetIFGroup(br-lan, eth0, 1, 1)");
        EXPECT_EQ(ethernet.relay, 1) << mode;
    }
}

TEST_F(Configure, WifiKeepsItsFlagInEveryMode) {
    add_bridge("br-lan");
    for (const kolt_link_type type : {KOLT_LINK_2G, KOLT_LINK_5G, KOLT_LINK_5G_2}) {
        add_port("relay" + std::to_string(type), type, 1);
        add_port("nonrelay" + std::to_string(type), type, 0);
    }
    for (const kolt_work_mode mode : {KOLT_MODE_RE, KOLT_MODE_FAP, KOLT_MODE_HAP, KOLT_MODE_UNKNOWN}) {
        (void)configure(mode);
        for (size_t i = 0; i < 6; i++)
            EXPECT_EQ(config_.interfaces[i].relay, i % 2 == 0 ? 1 : 0) << mode;
    }
}

TEST_F(Configure, InterfacesThatAreNoPortKeepTheirFlag) {
    add_bridge("br-lan");
    add_port("eth0", KOLT_LINK_ETHERNET, 0);
    platform.bridges["br-lan"].clear();
    (void)configure(KOLT_MODE_FAP);
    EXPECT_EQ(config_.interfaces[0].relay, 0);
}

TEST_F(Configure, PowerLineRootIsAskedForOnlyForPowerLinePortsOfAHap) {
    const at_log_level dump(3);
    add_bridge("br-lan");
    add_port("wlan0", KOLT_LINK_2G);
    add_port("plc0", KOLT_LINK_PLC);
    add_port("plc1", KOLT_LINK_PLC);
    (void)configure(KOLT_MODE_FAP);
    (void)configure(KOLT_MODE_UNKNOWN);
    EXPECT_THAT(logged_texts("uci_get_value"), IsEmpty());
    (void)configure(KOLT_MODE_HAP);
    const std::string asked = "Dump: Success to get  option value tolmux.tolmux.TrafficPlcRoot = 0 ";
    EXPECT_THAT(logged_texts("uci_get_value"), ElementsAre(asked, asked));
}

// ---- Ethernet traffic

class ConfigureEthTraffic : public Configure {
protected:
    void SetUp() override {
        Configure::SetUp();
        add_bridge("br-lan");
        add_port("eth0", KOLT_LINK_ETHERNET).compat_group = 1;
        add_port("eth1", KOLT_LINK_ETHERNET).compat_group = 2;
        add_port("eth2", KOLT_LINK_ETHERNET).compat_group = 2;
        add_port("wlan0", KOLT_LINK_2G).compat_group = 2;
        add_port("wlan1", KOLT_LINK_5G, 0).compat_group = 2;
        set_option("TrafficEthActive", "1");
        set_option("TrafficEthInterface", "eth1");
    }
    std::vector<int> relay_flags() {
        std::vector<int> flags;
        for (uint32_t i = 0; i < config_.interface_num; i++)
            flags.push_back(config_.interfaces[i].relay);
        return flags;
    }
};

TEST_F(ConfigureEthTraffic, TrafficGroupIsMadeNonrelayBeforeTheBroadcastChoice) {
    const call_list calls = configure(KOLT_MODE_RE);
    EXPECT_THAT(relay_flags(), ElementsAre(1, 0, 0, 1, 0));
    const call_list expected =
        call_list{"configure_fc_mode(0)", "bridgeSetTcpSP(br-lan, 0)", "bridgeSetBridgeMode(br-lan, 0)"} +
        port_calls{.bridge = "br-lan", .name = "eth0", .compat_group = 1, .relay = 1, .broadcast = 1} +
        port_calls{.bridge = "br-lan", .name = "eth1", .compat_group = 2, .broadcast = 1} +
        port_calls{.bridge = "br-lan", .name = "eth2", .compat_group = 2} +
        port_calls{.bridge = "br-lan", .name = "wlan0", .compat_group = 2, .relay = 1, .broadcast = 1, .type = 2} +
        port_calls{.bridge = "br-lan", .name = "wlan1", .compat_group = 2, .type = 3};
    EXPECT_EQ(calls, expected);
}

TEST_F(ConfigureEthTraffic, RelayFlagsAreToldAsTheRelayRewriteLeftThem) {
    const at_log_level debug(2);
    (void)configure(KOLT_MODE_RE);
    EXPECT_THAT(logged_texts("loop_avoidance_configure_bridge_with_mode"),
                ElementsAre("Debug: configure duon bridge with mode RE", "Debug: name:eth0, compat_group:1, relay:1",
                            "Debug: name:eth1, compat_group:2, relay:1", "Debug: name:eth2, compat_group:2, relay:1",
                            "Debug: bcast_port_0 is eth1", "Debug: bcast_port_1 is (null)"));
}

TEST_F(ConfigureEthTraffic, EthTrafficCountsInTheRangeExtenderOnlyAndIsNotReadElsewhere) {
    const at_log_level dump(3);
    for (const kolt_work_mode mode : {KOLT_MODE_FAP, KOLT_MODE_HAP, KOLT_MODE_UNKNOWN, INVALID_MODE}) {
        (void)configure(mode);
        EXPECT_THAT(relay_flags(), ElementsAre(1, 1, 1, 1, 0)) << mode;
    }
    EXPECT_THAT(logged_texts("uci_get_value"), IsEmpty());
}

TEST_F(ConfigureEthTraffic, EthTrafficCountsOnlyWhileItIsActive) {
    for (const char *active : {"0", "2", "yes", "11"}) {
        set_option("TrafficEthActive", active);
        (void)configure(KOLT_MODE_RE);
        EXPECT_THAT(relay_flags(), ElementsAre(1, 1, 1, 1, 0)) << active;
    }
    set_option("TrafficEthActive", "1");
    (void)configure(KOLT_MODE_RE);
    EXPECT_THAT(relay_flags(), ElementsAre(1, 0, 0, 1, 0));
}

TEST_F(ConfigureEthTraffic, InterfaceThatIsNoPortMakesGroupZeroNonrelay) {
    set_option("TrafficEthInterface", "eth9");
    config_.interfaces[2].compat_group = 0;
    (void)configure(KOLT_MODE_RE);
    EXPECT_THAT(relay_flags(), ElementsAre(1, 1, 0, 1, 0));
}

TEST_F(ConfigureEthTraffic, MissingInterfaceChangesNothingAndTheProgrammingGoesOn) {
    write_file("/etc/config/tolmux", "config tolmux 'tolmux'\n\toption TrafficEthActive '1'\n");
    EXPECT_EQ(configure(KOLT_MODE_RE).size(), 3 + 5 * 7U);
    EXPECT_THAT(relay_flags(), ElementsAre(1, 1, 1, 1, 0));
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "uci_get_value", "Error: element type is not option:3"}));
}

} // namespace
