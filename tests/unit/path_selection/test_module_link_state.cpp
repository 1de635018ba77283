// What becomes of the tables when links come and go.
#include "path_selection/module.h"
#include "path_selection/paths_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A bridge with a path port of every link type, and a client that is pinned to the 2.4 GHz one. Re-pointed, its entry
// goes to the chosen link, whose name is empty for power line.
class LinkState : public Paths {
protected:
    void SetUp() override {
        Paths::SetUp();
        add_bridge("br-lan", CONFIG_LOOP_AVOIDANCE);
        add_port("eth0.1", KOLT_LINK_ETHERNET);
        add_port("plc0.1", KOLT_LINK_PLC);
        add_port("wlan0.1", KOLT_LINK_2G);
        add_port("wlan1.1", KOLT_LINK_5G);
        add_port("wlan2.1", KOLT_LINK_5G_2);
        add_hd(1, 2, index_of("wlan0.1"));
    }
    lines change() {
        platform.calls.clear();
        kolt_event event{.type = 0, .len = 0, .data = nullptr};
        path_selection_event_cb(&config_, nullptr, KOLT_EVENT_LINK_STATE, &event);
        return take_calls();
    }
    static std::string repoint(const std::string &bridge, uint8_t client, uint8_t second, const std::string &name) {
        return "bridgeAddHDTableEntries(" + bridge + ", " + text_of_mac(client) + ", " + text_of_mac(second) + ", " +
               name + ", " + name + ", 0)";
    }
};

constexpr const char *NO_LINK = nullptr;

struct link_row {
    const char *name;
    uint32_t plc;
    uint32_t wifi_2g;
    uint32_t wifi_5g;
    uint32_t wifi_5g_2;
    const char *target; // NO_LINK: the table is flushed
};
class LinkChoice : public LinkState, public testing::WithParamInterface<named_row<link_row>> {};

TEST_P(LinkChoice, PowerLineIsChosenThenTheFastestWifi) {
    const link_row &row = GetParam().row;
    config_.ev.plc_state = row.plc;
    config_.ev.wifi_2g_state = row.wifi_2g;
    config_.ev.wifi_5g_state = row.wifi_5g;
    config_.ev.wifi_5g_2_state = row.wifi_5g_2;
    const std::string first =
        row.target == NO_LINK ? "bridgeFlushHDTable(br-lan)" : repoint("br-lan", 1, 2, row.target);
    EXPECT_THAT(change(), ElementsAre(first, "bridgeFlushHATable(br-lan)", "flush_all_fcache_flow()"));
    EXPECT_THAT(logged(), IsEmpty());
    config_.ev.eth_state = 1;
    EXPECT_EQ(change().at(0), first) << "the Ethernet link is never consulted";
}

INSTANTIATE_TEST_SUITE_P(
    AllCombinations, LinkChoice,
    testing::Values(link_row{"NoLink", 0, 0, 0, 0, NO_LINK}, link_row{"5G2", 0, 0, 0, 1, "wlan2.1"},
                    link_row{"5G", 0, 0, 1, 0, "wlan1.1"}, link_row{"5GAnd5G2", 0, 0, 1, 1, "wlan2.1"},
                    link_row{"2G", 0, 1, 0, 0, "wlan0.1"}, link_row{"2GAnd5G2", 0, 1, 0, 1, "wlan2.1"},
                    link_row{"2GAnd5G", 0, 1, 1, 0, "wlan1.1"}, link_row{"AllWifi", 0, 1, 1, 1, "wlan2.1"},
                    link_row{"Plc", 1, 0, 0, 0, ""}, link_row{"PlcAnd5G2", 1, 0, 0, 1, ""},
                    link_row{"PlcAnd5G", 1, 0, 1, 0, ""}, link_row{"PlcAndBoth5G", 1, 0, 1, 1, ""},
                    link_row{"PlcAnd2G", 1, 1, 0, 0, ""}, link_row{"PlcAnd2GAnd5G2", 1, 1, 0, 1, ""},
                    link_row{"PlcAnd2GAnd5G", 1, 1, 1, 0, ""}, link_row{"PlcWithEveryWifi", 1, 1, 1, 1, ""}),
    row_name<link_row>);

INSTANTIATE_TEST_SUITE_P(OnlyOneIsUp, LinkChoice,
                         testing::Values(link_row{"AllTwo", 2, 2, 2, 2, NO_LINK},
                                         link_row{"AllOnes", 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, NO_LINK},
                                         link_row{"PlcTwo", 2, 1, 0, 0, "wlan0.1"},
                                         link_row{"5G2Two", 0, 0, 1, 2, "wlan1.1"},
                                         link_row{"5GTwo", 0, 1, 257, 0, "wlan0.1"}),
                         row_name<link_row>);

TEST_F(LinkState, EthernetAloneFlushesTheTable) {
    config_.ev.eth_state = 1;
    EXPECT_THAT(change(),
                ElementsAre("bridgeFlushHDTable(br-lan)", "bridgeFlushHATable(br-lan)", "flush_all_fcache_flow()"));
}

TEST_F(LinkState, EachStepActsOnAllBridgesBeforeTheNext) {
    add_bridge("br-down", CONFIG_LOOP_AVOIDANCE, false);
    add_bridge("br-path", CONFIG_PATH_SELECTION);
    add_bridge("br-guest", CONFIG_LOOP_AVOIDANCE | CONFIG_PATH_SELECTION);
    add_port("wlan5.1", KOLT_LINK_5G, 0, 1, "br-guest");
    add_hd(3, 4, index_of("wlan5.1"));
    EXPECT_THAT(change(),
                ElementsAre("bridgeFlushHDTable(br-lan)", "bridgeFlushHDTable(br-guest)", "bridgeFlushHATable(br-lan)",
                            "bridgeFlushHATable(br-guest)", "flush_all_fcache_flow()"));
    config_.ev.wifi_5g_state = 1;
    EXPECT_THAT(change(),
                ElementsAre(repoint("br-lan", 1, 2, "wlan1.1"), repoint("br-guest", 3, 4, "wlan5.1"),
                            "bridgeFlushHATable(br-lan)", "bridgeFlushHATable(br-guest)", "flush_all_fcache_flow()"));
}

TEST_F(LinkState, RefusalOfTheLibraryDoesNotEndTheSteps) {
    platform.fail("bridgeFlushHDTable", -1);
    platform.fail("bridgeFlushHATable", 1);
    platform.fail("flush_all_fcache_flow", -1);
    EXPECT_EQ(change().size(), 3U);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "path_selection_flush_table", "Error: bridgeFlushHDTable"},
                                      log_line{LOG_ERR, "path_selection_flush_table", "Error: bridgeFlushHATable"}));
}

TEST_F(LinkState, HdTableThatCannotBeFetchedDoesNotEndTheSteps) {
    config_.ev.wifi_5g_state = 1;
    platform.fail("bridgeTableAction", -1);
    EXPECT_THAT(change(), ElementsAre("bridgeFlushHATable(br-lan)", "flush_all_fcache_flow()"));
}

TEST_F(LinkState, TablesAreChangedAlsoWithoutAFlowCache) {
    const installed_table none(nullptr);
    EXPECT_THAT(change(), ElementsAre("bridgeFlushHDTable(br-lan)", "bridgeFlushHATable(br-lan)"));
}

TEST_F(LinkState, EventItselfIsNotLookedAt) {
    path_selection_event_cb(&config_, nullptr, KOLT_EVENT_LINK_STATE, nullptr);
    EXPECT_EQ(take_calls().size(), 3U);
}

} // namespace
