// One period over all bridges: which are visited, and what is read for each.
#include "path_selection/paths_test.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class Period : public Paths {
protected:
    lines run() {
        platform.calls.clear();
        run_period();
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

TEST_P(VisitedBridges, VisitedBridgesDependOnTheWorkMode) {
    const visit_row &row = GetParam().row;
    add_bridge("br-wan");
    add_bridge("br-lan");
    add_bridge("br-guest");
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20, "br-wan");
    add_wifi("wlan1", KOLT_LINK_2G, 100, 20, "br-lan");
    add_wifi("wlan2", KOLT_LINK_2G, 100, 20, "br-guest");
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

TEST_F(Period, ApModeVisitsTheFirstBridgeThatPassesTheChecks) {
    add_bridge("br-loop", CONFIG_LOOP_AVOIDANCE);
    add_bridge("br-down", CONFIG_PATH_SELECTION, false);
    add_bridge("br-lan", CONFIG_PATH_SELECTION);
    add_bridge("br-guest", CONFIG_PATH_SELECTION);
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20, "br-loop");
    add_wifi("wlan1", KOLT_LINK_5G, 100, 20, "br-lan");
    add_wifi("wlan2", KOLT_LINK_2G, 100, 20, "br-guest");
    set_work_mode("AP");
    EXPECT_THAT(run(), ElementsAre("activate_links_for_ap(wlan1, param, 3)"));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Period, ApModeEndsAtABridgeWithoutPorts) {
    add_bridge("br-lan");
    add_bridge("br-guest");
    add_wifi("wlan2", KOLT_LINK_2G, 100, 20, "br-guest");
    set_work_mode("AP");
    EXPECT_THAT(run(), IsEmpty());
}

TEST_F(Period, ApModeReadsNoClients) {
    add_bridge("br-lan");
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    add_client(1, "wlan0.1");
    set_work_mode("AP");
    run_period();
    EXPECT_THAT(calls_of("bridgeTableAction"), IsEmpty());
    EXPECT_EQ(path_selection_ctx.last_adjust_status, 1);
}

TEST_F(Period, ReModeSkipsTheWanBridgeBeforeAskingForIt) {
    add_bridge("br-wan");
    run_period();
    EXPECT_THAT(platform.calls, IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Period, WholeNameIsComparedWithThatOfTheWanBridge) {
    add_bridge("br-wan2");
    add_bridge("br-wa");
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20, "br-wan2");
    add_wifi("wlan1", KOLT_LINK_2G, 100, 20, "br-wa");
    EXPECT_THAT(run(), ElementsAre("activate_links(wlan0, param, 2)", "activate_links(wlan1, param, 2)"));
}

TEST_F(Period, OnlyABridgeWithTheFlagIsAskedFor) {
    add_bridge("br-loop", CONFIG_LOOP_AVOIDANCE);
    add_bridge("br-lan", CONFIG_PATH_SELECTION, false);
    run_period();
    EXPECT_THAT(calls_of("netlink_msg"), ElementsAre("netlink_msg(br-lan, 0, 8, 38)"));
    EXPECT_THAT(logged(), IsEmpty()) << "skipped silently";
}

TEST_F(Period, WorkModeIsReadForEachBridgeBeforeItsNameIsLookedAt) {
    add_bridge("br-wan", 0);
    add_bridge("br-lan", 0);
    remove_file("/tmp/work_mode");
    run_period();
    EXPECT_THAT(logged_texts("kolt_get_work_mode"), ElementsAre("Error: parse work_mode", "Error: parse work_mode"));
}

TEST_F(Period, WorkModeIsReadAgainBehindThePorts) {
    add_bridge("br-lan");
    remove_file("/tmp/work_mode");
    run_period();
    EXPECT_THAT(logged_texts("kolt_get_work_mode"), ElementsAre("Error: parse work_mode", "Error: parse work_mode"));
    EXPECT_THAT(calls_of("netlink_msg"),
                ElementsAre("netlink_msg(br-lan, 0, 8, 38)", "netlink_msg(br-lan, 256, 4608, 38)"));
}

TEST_F(Period, PeriodWithoutBridgesDoesNothing) {
    EXPECT_THAT(run(), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

// ---- The order of one bridge's steps

TEST_F(Period, PeriodReadsPortsThenClientsThenActivatesThenMeasures) {
    add_bridge("br-lan");
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    add_client(1, "wlan0.1");
    config_.param.wlan_enable = 1;
    config_.param.high_threshold = 70;
    run_period();
    lines calls = platform.calls;
    std::erase_if(calls, [](const std::string &call) { return call.find("TableBuf") != std::string::npos; });
    EXPECT_THAT(calls, ElementsAre("netlink_msg(br-lan, 0, 8, 38)", "netlink_msg(br-lan, 256, 4608, 38)",
                                   "bridgeTableAction(br-lan, 2, 5000, 0)", "bridgeTableAction(br-lan, 1, 5000, 0)",
                                   "activate_links(wlan0, param, 2)", "get_uplink_rate(wlan0, 2)",
                                   "get_channel_utilization(wlan0, 2, 1)",
                                   "bridgeAddHDTableEntries(br-lan, " + text_of_mac(1) + ", " + text_of_mac(200) +
                                       ", wlan0.1, wlan0.1, 0)"));
}

TEST_F(Period, LinksAreActivatedAlsoWhenTheBridgeHasNoMac) {
    add_bridge("br-lan");
    add_bridge("br-guest");
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    add_wifi("wlan1", KOLT_LINK_2G, 100, 20, "br-guest");
    drop_interface("br-lan");
    kept_descriptors_ = 1;
    config_.param.wlan_enable = 1;
    EXPECT_THAT(run(), ElementsAre("activate_links(wlan0, param, 2)", "activate_links(wlan1, param, 2)",
                                   "get_uplink_rate(wlan1, 2)", "get_channel_utilization(wlan1, 2, 1)"))
        << "the next bridge has its turn";
}

TEST_F(Period, ClientsOfTheBridgeBeforeAreForgotten) {
    log_level = KOLT_LOG_DEBUG;
    add_bridge("br-lan");
    add_bridge("br-guest");
    add_port("eth0", KOLT_LINK_ETHERNET, 0, 0, "br-lan");
    add_port("eth1", KOLT_LINK_ETHERNET, 0, 0, "br-guest");
    add_client(1, "eth0");
    add_client(2, "eth0");
    add_client(3, "eth1");
    run_period();
    const auto client = [](uint8_t number, const char *port) {
        return "Debug: client: " + text_of_mac(number) + ", ifname:" + port + ", relay:norelay";
    };
    lines texts = logged_texts("path_selection_update_uplink_paths");
    std::erase_if(texts, [](const std::string &text) { return !text.starts_with("Debug: client"); });
    EXPECT_THAT(texts, ElementsAre(client(1, "eth0"), client(2, "eth0"), client(3, "eth1")));
}

// ---- The ports' lists

TEST_F(Period, NonrelayPortsArePassedOnWhetherPathOrNot) {
    add_bridge("br-lan");
    config_.param.wlan_enable = 1;
    config_.param.high_threshold = 70;
    add_wifi("wlan0", KOLT_LINK_2G, 100, 90);   // path and nonrelay
    add_wifi("wlan1", KOLT_LINK_5G, 300, 20);   // path and nonrelay
    add_port("plc0", KOLT_LINK_PLC, 1, 1);      // path only
    add_port("eth0", KOLT_LINK_ETHERNET, 0, 0); // nonrelay only
    add_port("eth1", KOLT_LINK_ETHERNET, 2, 0); // nonrelay only: its relay flag is not 1
    add_port("eth2", KOLT_LINK_ETHERNET, 1, 0); // neither
    add_client(1, "eth2");                      // clients are those of all active ports
    add_client(2, "plc0");
    add_client(3, "eth0");
    run_period();
    EXPECT_THAT(calls_of("get_maximal_ha_entries_from_fcache"),
                ElementsAre("get_maximal_ha_entries_from_fcache(3, 20, 4)"));
}

TEST_F(Period, OnlyThePortsOfTheBridgeAreTaken) {
    add_bridge("br-lan");
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    add_wifi("wlan1", KOLT_LINK_5G, 100, 20, "br-other");
    add_interface("stray");
    platform.bridges["br-lan"].push_back(index_of("stray"));
    EXPECT_THAT(run(), ElementsAre("activate_links(wlan0, param, 2)")) << "a port that is not configured is none";
}

// ---- Which links are kept active

struct port_row {
    const char *name;
    const char *port;
    kolt_link_type type;
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

TEST_P(KeptActive, ReModeKeepsTheseLinksActive) {
    EXPECT_EQ(run_with_port("RE"), expected("activate_links", GetParam().row.in_re_mode));
}

TEST_P(KeptActive, ApModeKeepsTheseLinksActive) {
    EXPECT_EQ(run_with_port("AP"), expected("activate_links_for_ap", GetParam().row.in_ap_mode));
}

INSTANTIATE_TEST_SUITE_P(
    Ports, KeptActive,
    testing::Values(port_row{"2G", "wlan0.1", KOLT_LINK_2G, 0, 1, 0, "wlan0", "wlan0"},
                    port_row{"5G", "wlan0.1", KOLT_LINK_5G, 0, 1, 0, "wlan0", "wlan0"},
                    port_row{"5G2OnlyInReMode", "wlan0.1", KOLT_LINK_5G_2, 0, 1, 0, "wlan0", nullptr},
                    port_row{"NotEthernet", "wlan0.1", KOLT_LINK_ETHERNET, 0, 1, 0, nullptr, nullptr},
                    port_row{"NotPowerLine", "wlan0.1", KOLT_LINK_PLC, 0, 1, 0, nullptr, nullptr},
                    port_row{"RelayOnlyInApMode", "wlan0.1", KOLT_LINK_2G, 1, 1, 0, nullptr, "wlan0"},
                    port_row{"AnotherRelayFlagOnlyInApMode", "wlan0.1", KOLT_LINK_2G, 2, 1, 0, nullptr, "wlan0"},
                    port_row{"NotOffThePaths", "wlan0.1", KOLT_LINK_2G, 0, 0, 0, nullptr, nullptr},
                    port_row{"NotOfClassOne", "wlan0.1", KOLT_LINK_2G, 0, 1, 1, nullptr, nullptr},
                    port_row{"OfAnotherClass", "wlan0.1", KOLT_LINK_2G, 0, 1, 2, "wlan0", "wlan0"},
                    port_row{"CutAtTheFirstDotOrByTwo", "wlan0.12.3", KOLT_LINK_2G, 0, 1, 0, "wlan0", "wlan0.12"},
                    port_row{"LongVlanLosesTwoOnly", "wlan0.12", KOLT_LINK_2G, 0, 1, 0, "wlan0", "wlan0."},
                    port_row{"NameWithoutADot", "wlan0", KOLT_LINK_5G, 0, 1, 0, "wlan0", "wla"},
                    port_row{"NameOfFifteen", "abcdefghijklmno", KOLT_LINK_5G, 0, 1, 0, "abcdefghijklmno",
                             "abcdefghijklm"},
                    port_row{"NameOfThree", "abc", KOLT_LINK_2G, 0, 1, 0, "abc", "a"},
                    port_row{"NameOfTwo", "ab", KOLT_LINK_2G, 0, 1, 0, "ab", ""},
                    port_row{"NameShorterThanTwo", "a", KOLT_LINK_2G, 0, 1, 0, "a", ""}),
    row_name<port_row>);

TEST_F(Period, EveryPathPortIsKeptActiveInTheOrderOfTheBridge) {
    add_bridge("br-lan");
    add_port("wlan2.1", KOLT_LINK_5G_2);
    add_port("wlan0.1", KOLT_LINK_2G);
    add_port("wlan1.1", KOLT_LINK_5G);
    add_port("wlan5.1", KOLT_LINK_5G);
    EXPECT_THAT(run(), ElementsAre("activate_links(wlan2, param, 4)", "activate_links(wlan0, param, 2)",
                                   "activate_links(wlan1, param, 3)", "activate_links(wlan5, param, 3)"));
    set_work_mode("AP");
    EXPECT_THAT(run(), ElementsAre("activate_links_for_ap(wlan0, param, 2)", "activate_links_for_ap(wlan1, param, 3)",
                                   "activate_links_for_ap(wlan5, param, 3)"));
}

TEST_F(Period, DriverWithoutOperationsIsSurvived) {
    add_bridge("br-lan");
    add_wifi("wlan0", KOLT_LINK_2G, 100, 20);
    const installed_table none(nullptr);
    EXPECT_THAT(run(), IsEmpty());
    set_work_mode("AP");
    EXPECT_THAT(run(), IsEmpty());
}

TEST_F(Period, PeriodHoldsAsManyPortsAsABridgeCanHave) {
    add_bridge("br-lan");
    lines expected;
    for (int i = 0; i < 128; i++) {
        add_port("w" + std::to_string(i) + ".1", KOLT_LINK_2G);
        expected.push_back("activate_links(w" + std::to_string(i) + ", param, 2)");
    }
    EXPECT_EQ(run(), expected);
}

} // namespace
