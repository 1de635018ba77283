// Flushing tables, and pointing HD entries at another link.
#include "path_selection/paths_test.h"
#include "path_selection/tables.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Tables : public Paths {
protected:
    static constexpr std::array<uint32_t, KOLT_LINK_COUNT> STATES = {};

    // Where a client that is pinned to `port` is re-pointed to when `link` is chosen; "nowhere" when it is not.
    std::string target(kolt_link_type link, const std::string &port) {
        platform.tables.clear();
        platform.calls.clear();
        add_hd(1, 2, index_of(port));
        path_selection_update_table(&config_, TABLE_HD, STATES, link);
        const lines calls = calls_of("bridgeAddHDTableEntries");
        if (calls.empty())
            return "nowhere";
        const std::string before = "bridgeAddHDTableEntries(br-lan, " + text_of_mac(1) + ", " + text_of_mac(2) + ", ";
        EXPECT_EQ(calls.size(), 1U);
        EXPECT_EQ(calls[0].substr(0, before.size()), before);
        return calls[0].substr(before.size(), calls[0].find(',', before.size()) - before.size());
    }
    static lines port_queries() {
        lines queries = calls_of("netlink_msg");
        std::erase_if(queries, [](const std::string &call) { return call.find(", 256, ") == std::string::npos; });
        return queries;
    }
};

// ---- Flushing

struct flush_row {
    const char *name;
    kolt_table_kind table;
    const char *function;
};
class FlushTable : public Tables, public testing::WithParamInterface<named_row<flush_row>> {
protected:
    const flush_row &row_ = GetParam().row;
    std::string call(const char *bridge) {
        return std::string(row_.function) + "(" + bridge + ")";
    }
};

TEST_P(FlushTable, EveryActiveLoopAvoidingBridgeIsFlushedInOrder) {
    add_bridge("br-lan", CONFIG_LOOP_AVOIDANCE);
    add_bridge("br-down", CONFIG_LOOP_AVOIDANCE, false);
    add_bridge("br-path", CONFIG_PATH_SELECTION);
    add_bridge("br-none", 4);
    add_bridge("br-guest", 7);
    path_selection_flush_table(&config_, row_.table);
    EXPECT_THAT(take_calls(), ElementsAre(call("br-lan"), call("br-guest")));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_P(FlushTable, RefusalIsLoggedAndTheNextBridgeIsFlushed) {
    add_bridge("br-lan");
    add_bridge("br-guest");
    platform.fail(row_.function, -1, 1);
    path_selection_flush_table(&config_, row_.table);
    EXPECT_THAT(take_calls(), ElementsAre(call("br-lan"), call("br-guest")));
    const log_line refused{LOG_ERR, "path_selection_flush_table", std::string("Error: ") + row_.function};
    EXPECT_THAT(logged(), ElementsAre(refused));
    platform.fail(row_.function, 1);
    path_selection_flush_table(&config_, row_.table);
    EXPECT_THAT(logged(), ElementsAre(refused, refused, refused)) << "any result but 0";
}

TEST_P(FlushTable, FlushWithoutBridgesDoesNothing) {
    path_selection_flush_table(&config_, row_.table);
    EXPECT_THAT(platform.calls, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Tables, FlushTable,
                         testing::Values(flush_row{"Ha", TABLE_HA, "bridgeFlushHATable"},
                                         flush_row{"Hd", TABLE_HD, "bridgeFlushHDTable"}),
                         row_name<flush_row>);

TEST_F(Tables, FlushOfAnUnknownTypeIsAnErrorForEachEligibleBridge) {
    add_bridge("br-lan");
    add_bridge("br-down", CONFIG_LOOP_AVOIDANCE, false);
    add_bridge("br-path", CONFIG_PATH_SELECTION);
    add_bridge("br-guest");
    const log_line unknown{LOG_ERR, "path_selection_flush_table", "Error: Unknown Table Type"};
    path_selection_flush_table(&config_, TABLE_FDB);
    EXPECT_THAT(logged(), ElementsAre(unknown, unknown));
    path_selection_flush_table(&config_, static_cast<kolt_table_kind>(0xFFFFFFFF));
    EXPECT_THAT(logged(), ElementsAre(unknown, unknown, unknown, unknown));
    EXPECT_THAT(take_calls(), IsEmpty());
}

// ---- Re-pointing

TEST_F(Tables, UpdateOfTheHaTableIsAnErrorForEachEligibleBridgeAndChangesNothing) {
    add_bridge("br-lan");
    add_port("wlan0.1", KOLT_LINK_2G);
    add_bridge("br-down", CONFIG_LOOP_AVOIDANCE, false);
    add_bridge("br-path", CONFIG_PATH_SELECTION);
    add_bridge("br-guest");
    add_hd(1, 2, index_of("wlan0.1"));
    const log_line unknown{LOG_ERR, "path_selection_update_table", "Error: Unknown Table Type"};
    log_level = KOLT_LOG_DEBUG;
    path_selection_update_table(&config_, TABLE_HA, STATES, KOLT_LINK_2G);
    EXPECT_THAT(logged(), ElementsAre(unknown, unknown));
    EXPECT_THAT(port_queries(),
                ElementsAre("netlink_msg(br-lan, 256, 4608, 38)", "netlink_msg(br-guest, 256, 4608, 38)"))
        << "the names are filled in before the type is judged";
    EXPECT_THAT(take_calls(), IsEmpty());
    path_selection_update_table(&config_, TABLE_FDB, STATES, KOLT_LINK_2G);
    EXPECT_EQ(logged().size(), 4U);
    EXPECT_THAT(take_calls(), IsEmpty());
}

TEST_F(Tables, UpdateLogsItsSuccessForEachBridgeAtDebugLevel) {
    add_bridge("br-lan");
    add_bridge("br-guest");
    path_selection_update_table(&config_, TABLE_HD, STATES, KOLT_LINK_2G);
    EXPECT_THAT(logged(), IsEmpty());
    log_level = KOLT_LOG_DEBUG;
    path_selection_update_table(&config_, TABLE_HD, STATES, KOLT_LINK_2G);
    const log_line updated{LOG_DEBUG, "path_selection_update_table", "Debug: update hd table OK"};
    EXPECT_THAT(logged(), ElementsAre(updated, updated));
}

TEST_F(Tables, UpdateThatFailsIsNotCalledOkAndTheNextBridgeHasItsTurn) {
    add_bridge("br-lan");
    add_bridge("br-guest");
    log_level = KOLT_LOG_DEBUG;
    platform.fail("bridgeTableAction", -1, 1);
    path_selection_update_table(&config_, TABLE_HD, STATES, KOLT_LINK_2G);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "kolt_update_hd_table", "Error: get hd table"},
                                      log_line{LOG_DEBUG, "path_selection_update_table", "Debug: update hd table OK"}));
}

TEST_F(Tables, UpdateAddsTheEntriesOnTheTargetAgainToo) {
    add_bridge("br-lan");
    add_port("wlan0.1", KOLT_LINK_2G);
    add_port("wlan1.1", KOLT_LINK_5G);
    EXPECT_EQ(target(KOLT_LINK_5G, "wlan1.1"), "wlan1.1");
}

TEST_F(Tables, UpdateLeavesEntriesOnOtherInterfacesAlone) {
    add_bridge("br-lan");
    add_port("wlan0.1", KOLT_LINK_2G);
    add_port("eth0", KOLT_LINK_ETHERNET);
    EXPECT_EQ(target(KOLT_LINK_2G, "eth0"), "nowhere");
}

TEST_F(Tables, UpdateClearsTheNamesForEachBridge) {
    add_bridge("br-lan");
    add_port("wlan0.1", KOLT_LINK_2G);
    add_port("wlan1.1", KOLT_LINK_5G);
    add_bridge("br-guest");
    add_port("wlan5.1", KOLT_LINK_2G, 0, 1, "br-guest");
    add_hd(1, 2, index_of("wlan0.1"));
    add_hd(3, 4, index_of("wlan5.1"));
    path_selection_update_table(&config_, TABLE_HD, STATES, KOLT_LINK_5G);
    const auto add = [](const char *bridge, uint8_t client, uint8_t second, const std::string &name) {
        return std::string("bridgeAddHDTableEntries(") + bridge + ", " + text_of_mac(client) + ", " +
               text_of_mac(second) + ", " + name + ", " + name + ", 0)";
    };
    EXPECT_THAT(take_calls(), ElementsAre(add("br-lan", 1, 2, "wlan1.1"), add("br-guest", 3, 4, "")));
}

TEST_F(Tables, UpdateTowardsNoLinkPassesAnEmptyName) {
    add_bridge("br-lan");
    add_port("wlan0.1", KOLT_LINK_2G);
    EXPECT_EQ(target(PATH_NONE, "wlan0.1"), "");
    EXPECT_EQ(target(KOLT_LINK_PLC, "wlan0.1"), "");
    EXPECT_EQ(target(KOLT_LINK_ETHERNET, "wlan0.1"), "");
}

// ---- The five names

TEST_F(Tables, FirstPortOfATypeGivesTheName) {
    add_bridge("br-lan");
    add_port("wlan3.1", KOLT_LINK_5G);
    add_port("wlan1.1", KOLT_LINK_5G);
    add_port("wlan0.1", KOLT_LINK_2G);
    EXPECT_EQ(target(KOLT_LINK_5G, "wlan0.1"), "wlan3.1");
}

TEST_F(Tables, NameIsThatOfTheFirstVlanOfTheRadio) {
    add_bridge("br-lan");
    add_port("wlan0.1", KOLT_LINK_2G);
    add_port("wlan1.3.5", KOLT_LINK_5G);
    add_port("wlan2", KOLT_LINK_5G_2);
    EXPECT_EQ(target(KOLT_LINK_5G, "wlan0.1"), "wlan1.1") << "cut at the first dot";
    EXPECT_EQ(target(KOLT_LINK_5G_2, "wlan0.1"), "wlan2.1") << "without a dot it is the whole name";
    EXPECT_EQ(target(KOLT_LINK_5G, "wlan1.3.5"), "nowhere") << "the port's own name is not among the five";
}

TEST_F(Tables, NamesThatDoNotFitAreCut) {
    add_bridge("br-lan");
    add_port("wlan0.1", KOLT_LINK_2G);
    add_port("abcdefghijklmn", KOLT_LINK_5G);
    add_port("abcdefghijklmno", KOLT_LINK_5G_2);
    EXPECT_EQ(target(KOLT_LINK_5G, "wlan0.1"), "abcdefghijklmn.");
    EXPECT_EQ(target(KOLT_LINK_5G_2, "wlan0.1"), "abcdefghijklmno");
}

TEST_F(Tables, NameWithoutABaseStillFillsItsEntry) {
    add_bridge("br-lan");
    add_port("wlan0.1", KOLT_LINK_2G);
    add_port(".3", KOLT_LINK_5G);
    add_port("wlan1.1", KOLT_LINK_5G);
    EXPECT_EQ(target(KOLT_LINK_5G, "wlan0.1"), ".1");
}

struct named_port_row {
    const char *name;
    kolt_link_type type;
    uint8_t relay;
    uint8_t path;
    uint8_t class_;
    bool named;
};
class NamedPort : public Tables, public testing::WithParamInterface<named_row<named_port_row>> {};

TEST_P(NamedPort, PortThatGivesTheNameIsANonrelayWifiPathPort) {
    const named_port_row &row = GetParam().row;
    add_bridge("br-lan");
    add_port("wlan7.1", KOLT_LINK_2G); // the first 2.4 GHz name is taken, so that the entry in question is another one
    add_port("wlan9.1", row.type, row.relay, row.path).class_ = row.class_;
    EXPECT_EQ(target(row.type, "wlan7.1"), row.named ? "wlan9.1" : "");
}

INSTANTIATE_TEST_SUITE_P(Ports, NamedPort,
                         testing::Values(named_port_row{"5G", KOLT_LINK_5G, 0, 1, 0, true},
                                         named_port_row{"5G2", KOLT_LINK_5G_2, 0, 1, 0, true},
                                         named_port_row{"ClassOneToo", KOLT_LINK_5G, 0, 1, 1, true},
                                         named_port_row{"AnyPathFlagButZero", KOLT_LINK_5G, 0, 255, 0, true},
                                         named_port_row{"NotARelayPort", KOLT_LINK_5G, 1, 1, 0, false},
                                         named_port_row{"NotWithAnotherRelayFlag", KOLT_LINK_5G, 2, 1, 0, false},
                                         named_port_row{"NotOffThePaths", KOLT_LINK_5G, 0, 0, 0, false},
                                         named_port_row{"NotEthernet", KOLT_LINK_ETHERNET, 0, 1, 0, false},
                                         named_port_row{"NotPowerLine", KOLT_LINK_PLC, 0, 1, 0, false}),
                         row_name<named_port_row>);

TEST_F(Tables, RelayPortLeavesTheEntryToTheNextPort) {
    add_bridge("br-lan");
    add_port("wlan0.1", KOLT_LINK_2G);
    add_port("wlan1.1", KOLT_LINK_5G, 1);
    add_port("wlan2.1", KOLT_LINK_5G);
    EXPECT_EQ(target(KOLT_LINK_5G, "wlan0.1"), "wlan2.1");
}

} // namespace
