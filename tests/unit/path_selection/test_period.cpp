#include "path_selection/paths_test.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class Period : public Paths {
protected:
    lines run() {
        platform.calls.clear();
        path_selection_run_period(&config_);
        return take_calls();
    }
};

// ---- Which bridges are visited

struct visit_row {
    const char *name;
    const char *mode; // of the work-mode file; null: there is none
    lines calls;      // with a 2.4 GHz path port on each of br-wan, br-lan and br-guest
};
class VisitedBridges : public Period, public testing::WithParamInterface<named_row<visit_row>> {};

TEST_P(VisitedBridges, DependOnTheWorkMode) {
    const visit_row &row = GetParam().row;
    add_bridge("br-wan");
    add_bridge("br-lan");
    add_bridge("br-guest");
    add_wifi("wlan0", 2, 100, 20, "br-wan");
    add_wifi("wlan1", 2, 100, 20, "br-lan");
    add_wifi("wlan2", 2, 100, 20, "br-guest");
    if (row.mode != nullptr)
        set_work_mode(row.mode);
    else
        remove_file("/tmp/work_mode");
    EXPECT_THAT(run(), ElementsAreArray(row.calls));
}

const lines EXTENDER = {"activate_links(wlan1, param, 2)", "activate_links(wlan2, param, 2)"};
const lines FIRST_ONLY = {"activate_links_for_ap(wlan0, param, 2)"};

INSTANTIATE_TEST_SUITE_P(Modes, VisitedBridges,
                         testing::Values(visit_row{"ReAllButTheWanBridge", "RE", EXTENDER},
                                         visit_row{"FapTheFirstOnly", "FAP", FIRST_ONLY},
                                         visit_row{"ApTheFirstOnly", "AP", FIRST_ONLY},
                                         visit_row{"HapTheFirstOnly", "HAP", FIRST_ONLY},
                                         visit_row{"UnknownTheFirstOnly", "re", FIRST_ONLY},
                                         visit_row{"UnreadableTheFirstOnly", nullptr, FIRST_ONLY}),
                         row_name<visit_row>);

TEST_F(Period, InApModeVisitsTheFirstBridgeThatPassesTheChecks) {
    add_bridge("br-loop", CONFIG_LOOP_AVOIDANCE);
    add_bridge("br-down", CONFIG_PATH_SELECTION, false);
    add_bridge("br-lan", CONFIG_PATH_SELECTION);
    add_bridge("br-guest", CONFIG_PATH_SELECTION);
    add_wifi("wlan0", 2, 100, 20, "br-loop");
    add_wifi("wlan1", 3, 100, 20, "br-lan");
    add_wifi("wlan2", 2, 100, 20, "br-guest");
    set_work_mode("AP");
    EXPECT_THAT(run(), ElementsAre("activate_links_for_ap(wlan1, param, 3)"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Period, InApModeEndsAtABridgeWithoutPorts) {
    add_bridge("br-lan");
    add_bridge("br-guest");
    add_wifi("wlan2", 2, 100, 20, "br-guest");
    set_work_mode("AP");
    EXPECT_THAT(run(), IsEmpty());
}

TEST_F(Period, InApModeReadsNoClients) {
    add_bridge("br-lan");
    add_wifi("wlan0", 2, 100, 20);
    add_client(1, "wlan0.1");
    set_work_mode("AP");
    path_selection_run_period(&config_);
    EXPECT_THAT(calls_of("bridgeTableAction"), IsEmpty());
    EXPECT_EQ(path_selection_ctx.last_adjust_status, 1);
}

TEST_F(Period, InReModeSkipsTheWanBridgeBeforeAskingForIt) {
    add_bridge("br-wan");
    path_selection_run_period(&config_);
    EXPECT_THAT(platform.calls, IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Period, ComparesTheWholeNameWithThatOfTheWanBridge) {
    add_bridge("br-wan2");
    add_bridge("br-wa");
    add_wifi("wlan0", 2, 100, 20, "br-wan2");
    add_wifi("wlan1", 2, 100, 20, "br-wa");
    EXPECT_THAT(run(), ElementsAre("activate_links(wlan0, param, 2)", "activate_links(wlan1, param, 2)"));
}

TEST_F(Period, AsksForABridgeOnlyWhenItHasTheFlag) {
    add_bridge("br-loop", CONFIG_LOOP_AVOIDANCE);
    add_bridge("br-lan", CONFIG_PATH_SELECTION, false);
    path_selection_run_period(&config_);
    EXPECT_THAT(calls_of("netlink_msg"), ElementsAre("netlink_msg(br-lan, 0, 8, 38)"));
    EXPECT_THAT(logged(), IsEmpty()) << "skipped silently";
}

TEST_F(Period, ReadsTheWorkModeForEachBridgeBeforeItsNameIsLookedAt) {
    add_bridge("br-wan", 0);
    add_bridge("br-lan", 0);
    remove_file("/tmp/work_mode");
    path_selection_run_period(&config_);
    EXPECT_THAT(logged_texts("kolt_get_work_mode"), ElementsAre("Error: parse work_mode", "Error: parse work_mode"));
}

TEST_F(Period, ReadsTheWorkModeAgainBehindThePorts) {
    add_bridge("br-lan");
    remove_file("/tmp/work_mode");
    path_selection_run_period(&config_);
    EXPECT_THAT(logged_texts("kolt_get_work_mode"), ElementsAre("Error: parse work_mode", "Error: parse work_mode"));
    EXPECT_THAT(calls_of("netlink_msg"),
                ElementsAre("netlink_msg(br-lan, 0, 8, 38)", "netlink_msg(br-lan, 256, 4608, 38)"));
}

TEST_F(Period, WithoutBridgesDoesNothing) {
    EXPECT_THAT(run(), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

// ---- The order of one bridge's steps

TEST_F(Period, ReadsPortsThenClientsThenActivatesThenMeasures) {
    add_bridge("br-lan");
    add_wifi("wlan0", 2, 100, 20);
    add_client(1, "wlan0.1");
    config_.param.wlan_enable = 1;
    config_.param.high_threshold = 70;
    path_selection_run_period(&config_);
    lines calls = platform.calls;
    std::erase_if(calls, [](const std::string &call) { return call.find("TableBuf") != std::string::npos; });
    EXPECT_THAT(calls, ElementsAre("netlink_msg(br-lan, 0, 8, 38)", "netlink_msg(br-lan, 256, 4608, 38)",
                                   "bridgeTableAction(br-lan, 2, 5000, 0)", "bridgeTableAction(br-lan, 1, 5000, 0)",
                                   "activate_links(wlan0, param, 2)", "get_uplink_rate(wlan0, 2)",
                                   "get_channel_utilization(wlan0, 2, 1)",
                                   "bridgeAddHDTableEntries(br-lan, " + text_of_mac(1) + ", " + text_of_mac(200) +
                                       ", wlan0.1, wlan0.1, 0)"));
}

TEST_F(Period, ActivatesLinksAlsoWhenTheBridgeHasNoMac) {
    add_bridge("br-lan");
    add_bridge("br-guest");
    add_wifi("wlan0", 2, 100, 20);
    add_wifi("wlan1", 2, 100, 20, "br-guest");
    drop_interface("br-lan");
    kept_descriptors_ = 1;
    config_.param.wlan_enable = 1;
    EXPECT_THAT(run(), ElementsAre("activate_links(wlan0, param, 2)", "activate_links(wlan1, param, 2)",
                                   "get_uplink_rate(wlan1, 2)", "get_channel_utilization(wlan1, 2, 1)"))
        << "the next bridge has its turn";
}

TEST_F(Period, ForgetsTheInterfacesOfThePeriodBefore) {
    add_bridge("br-lan");
    const uint32_t index = add_interface("wlan9.1");
    ASSERT_STREQ(ps_interface_name(index), "wlan9.1");
    drop_interface("wlan9.1");
    path_selection_run_period(&config_);
    EXPECT_EQ(ps_interface_name(index), nullptr);
}

TEST_F(Period, ForgetsTheClientsOfTheBridgeBefore) {
    log_level = KOLT_LOG_DEBUG;
    add_bridge("br-lan");
    add_bridge("br-guest");
    add_port("eth0", 0, 0, 0, "br-lan");
    add_port("eth1", 0, 0, 0, "br-guest");
    add_client(1, "eth0");
    add_client(2, "eth0");
    add_client(3, "eth1");
    path_selection_run_period(&config_);
    const auto client = [](uint8_t number, const char *port) {
        return "Debug: client: " + text_of_mac(number) + ", ifname:" + port + ", relay:norelay";
    };
    lines texts = logged_texts("path_selection_update_uplink_paths");
    std::erase_if(texts, [](const std::string &text) { return !text.starts_with("Debug: client"); });
    EXPECT_THAT(texts, ElementsAre(client(1, "eth0"), client(2, "eth0"), client(3, "eth1")));
}

// ---- The ports' lists

TEST_F(Period, PassesTheNonrelayPortsOnWhetherPathOrNot) {
    add_bridge("br-lan");
    config_.param.wlan_enable = 1;
    config_.param.high_threshold = 70;
    add_wifi("wlan0", 2, 100, 90); // path and nonrelay
    add_wifi("wlan1", 3, 300, 20); // path and nonrelay
    add_port("plc0", 1, 1, 1);     // path only
    add_port("eth0", 0, 0, 0);     // nonrelay only
    add_port("eth1", 0, 2, 0);     // nonrelay only: its relay flag is not 1
    add_port("eth2", 0, 1, 0);     // neither
    add_client(1, "eth2");         // clients are those of all active ports
    add_client(2, "plc0");
    add_client(3, "eth0");
    path_selection_run_period(&config_);
    EXPECT_THAT(calls_of("get_maximal_ha_entries_from_fcache"),
                ElementsAre("get_maximal_ha_entries_from_fcache(3, 20, 4)"));
}

TEST_F(Period, TakesThePortsOfTheBridgeOnly) {
    add_bridge("br-lan");
    add_wifi("wlan0", 2, 100, 20);
    add_wifi("wlan1", 3, 100, 20, "br-other");
    add_interface("stray");
    platform.bridges["br-lan"].push_back(index_of("stray"));
    EXPECT_THAT(run(), ElementsAre("activate_links(wlan0, param, 2)")) << "a port that is not configured is none";
}

// ---- Which links are kept active

struct port_row {
    const char *name;
    const char *port;
    uint32_t type;
    uint8_t relay;
    uint8_t path;
    uint8_t class_;
    const char *in_re_mode; // the interface that is kept active, or null
    const char *in_ap_mode;
};
class KeptActive : public Period, public testing::WithParamInterface<named_row<port_row>> {
protected:
    lines run_with_port(const char *mode) {
        const port_row &row = GetParam().row;
        add_bridge("br-lan");
        add_port(row.port, row.type, row.relay, row.path).class_ = row.class_;
        set_work_mode(mode);
        return run();
    }
    static lines expected(const char *operation, const char *name) {
        if (name == nullptr)
            return {};
        return {std::string(operation) + "(" + name + ", param, " + std::to_string(GetParam().row.type) + ")"};
    }
};

TEST_P(KeptActive, InReMode) {
    EXPECT_EQ(run_with_port("RE"), expected("activate_links", GetParam().row.in_re_mode));
}

TEST_P(KeptActive, InApMode) {
    EXPECT_EQ(run_with_port("AP"), expected("activate_links_for_ap", GetParam().row.in_ap_mode));
}

INSTANTIATE_TEST_SUITE_P(
    Ports, KeptActive,
    testing::Values(port_row{"2G", "wlan0.1", 2, 0, 1, 0, "wlan0", "wlan0"},
                    port_row{"5G", "wlan0.1", 3, 0, 1, 0, "wlan0", "wlan0"},
                    port_row{"5G2OnlyInReMode", "wlan0.1", 4, 0, 1, 0, "wlan0", nullptr},
                    port_row{"NotEthernet", "wlan0.1", 0, 0, 1, 0, nullptr, nullptr},
                    port_row{"NotPowerLine", "wlan0.1", 1, 0, 1, 0, nullptr, nullptr},
                    port_row{"RelayOnlyInApMode", "wlan0.1", 2, 1, 1, 0, nullptr, "wlan0"},
                    port_row{"AnotherRelayFlagOnlyInApMode", "wlan0.1", 2, 2, 1, 0, nullptr, "wlan0"},
                    port_row{"NotOffThePaths", "wlan0.1", 2, 0, 0, 0, nullptr, nullptr},
                    port_row{"NotOfClassOne", "wlan0.1", 2, 0, 1, 1, nullptr, nullptr},
                    port_row{"OfAnotherClass", "wlan0.1", 2, 0, 1, 2, "wlan0", "wlan0"},
                    port_row{"CutAtTheFirstDotOrByTwo", "wlan0.12.3", 2, 0, 1, 0, "wlan0", "wlan0.12"},
                    port_row{"LongVlanLosesTwoOnly", "wlan0.12", 2, 0, 1, 0, "wlan0", "wlan0."},
                    port_row{"NameWithoutADot", "wlan0", 3, 0, 1, 0, "wlan0", "wla"},
                    port_row{"NameOfFifteen", "abcdefghijklmno", 3, 0, 1, 0, "abcdefghijklmno", "abcdefghijklm"},
                    port_row{"NameOfThree", "abc", 2, 0, 1, 0, "abc", "a"},
                    port_row{"NameOfTwo", "ab", 2, 0, 1, 0, "ab", ""},
                    port_row{"NameShorterThanTwo", "a", 2, 0, 1, 0, "a", ""}),
    row_name<port_row>);

TEST_F(Period, KeepsEveryPathPortActiveInTheOrderOfTheBridge) {
    add_bridge("br-lan");
    add_port("wlan2.1", 4);
    add_port("wlan0.1", 2);
    add_port("wlan1.1", 3);
    add_port("wlan5.1", 3);
    EXPECT_THAT(run(), ElementsAre("activate_links(wlan2, param, 4)", "activate_links(wlan0, param, 2)",
                                   "activate_links(wlan1, param, 3)", "activate_links(wlan5, param, 3)"));
    set_work_mode("AP");
    EXPECT_THAT(run(), ElementsAre("activate_links_for_ap(wlan0, param, 2)", "activate_links_for_ap(wlan1, param, 3)",
                                   "activate_links_for_ap(wlan5, param, 3)"));
}

TEST_F(Period, SurvivesADriverWithoutOperations) {
    add_bridge("br-lan");
    add_wifi("wlan0", 2, 100, 20);
    const installed_table none(nullptr);
    EXPECT_THAT(run(), IsEmpty());
    set_work_mode("AP");
    EXPECT_THAT(run(), IsEmpty());
}

TEST_F(Period, HoldsAsManyPortsAsABridgeCanHave) {
    add_bridge("br-lan");
    lines expected;
    for (int i = 0; i < 128; i++) {
        add_port("w" + std::to_string(i) + ".1", 2);
        expected.push_back("activate_links(w" + std::to_string(i) + ", param, 2)");
    }
    EXPECT_EQ(run(), expected);
}

} // namespace
