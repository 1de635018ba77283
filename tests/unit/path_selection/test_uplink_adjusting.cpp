// When streams are moved, and when not yet.
#include "path_selection/uplink_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A busy 2.4 GHz path with a client's stream on it, and a 5 GHz path that has room for the stream: it needs a tenth of
// the path, 64 x 5000 x 30 bytes a period being 30 units of rate 300.
class Adjusting : public Uplink {
protected:
    static constexpr uint32_t STREAM = 64 * 5000 * 30;
    void SetUp() override {
        Uplink::SetUp();
        add_wifi("wlan0", KOLT_LINK_2G, 100, 90);
        add_wifi("wlan1", KOLT_LINK_5G, 300, 20);
        add_client(1, "eth0");
        add_hd(1, 200, index_of("wlan0.1"));
        add_stream(1, "wlan0.1", STREAM);
    }
    static void set_load(uint8_t load_2g, uint8_t load_5g = 20) {
        driver.radios["wlan0"].util = load_2g;
        driver.radios["wlan1"].util = load_5g;
    }
    // Runs a period; whether it read the streams, and how many it moved.
    struct outcome {
        bool adjusting;
        size_t moves;
        bool operator==(const outcome &) const = default;
    };
    outcome period() {
        run();
        const lines fetches = calls_of("bridgeTableAction");
        const bool read = std::ranges::any_of(
            fetches, [](const std::string &call) { return call == "bridgeTableAction(br-lan, 8, 5000, 0)"; });
        EXPECT_EQ(calls_of("get_maximal_ha_entries_from_fcache").size(), read ? 1U : 0U);
        EXPECT_EQ(placements().size(), 1U) << "HD entries are written in every period";
        EXPECT_EQ(path_selection_ctx.last_adjust_status, read ? 1 : 0);
        return {read, calls_of("bridgeSetHATableEntries").size()};
    }
};

constexpr bool CALM = false;
constexpr bool ADJUSTS = true;

TEST_F(Adjusting, FirstPeriodOfTheProcessMovesStreamsAlready) {
    EXPECT_EQ(period(), (outcome{ADJUSTS, 1}));
}

TEST_F(Adjusting, OverloadedPeriodBehindACalmOneMovesNoStreamsTheNextOneDoes) {
    set_load(50);
    EXPECT_EQ(period(), (outcome{CALM, 0}));
    set_load(90);
    EXPECT_EQ(period(), (outcome{ADJUSTS, 0}));
    EXPECT_EQ(period(), (outcome{ADJUSTS, 1}));
    EXPECT_EQ(period(), (outcome{ADJUSTS, 1}));
    set_load(70);
    EXPECT_EQ(period(), (outcome{CALM, 0})) << "at the threshold";
    set_load(71);
    EXPECT_EQ(period(), (outcome{ADJUSTS, 0}));
}

TEST_F(Adjusting, FullLoadIsNoReasonToAdjust) {
    set_load(90, 85);
    EXPECT_EQ(period(), (outcome{CALM, 0}));
    set_load(90, 80);
    EXPECT_EQ(period(), (outcome{CALM, 0})) << "lighter by the delta threshold is full still";
    set_load(90, 79);
    EXPECT_EQ(period(), (outcome{ADJUSTS, 0}));
    EXPECT_EQ(period(), (outcome{ADJUSTS, 1}));
}

TEST_F(Adjusting, OnlyAStatusOfOneCounts) {
    path_selection_ctx.last_adjust_status = 2;
    EXPECT_EQ(period(), (outcome{ADJUSTS, 0}));
}

TEST_F(Adjusting, StreamIsMovedToTheBestPathNotToTheHdPath) {
    config_.param.backhual_prefered = 1; // 2.4 GHz
    platform.fail("is_5g_low_noise", 1);
    platform.tables.erase(1);
    add_hd(1, 200, index_of("eth0"));
    run();
    EXPECT_THAT(placements(), ElementsAre(placement(1, "wlan0.1")));
    ASSERT_EQ(calls_of("bridgeSetHATableEntries").size(), 1U);
    EXPECT_THAT(calls_of("bridgeSetHATableEntries")[0], testing::HasSubstr(", wlan1.1, "));
}

TEST_F(Adjusting, HdEntryIsWrittenBeforeTheStreamsAreMoved) {
    run();
    lines writes = platform.calls;
    std::erase_if(writes, [](const std::string &call) {
        return !call.starts_with("bridgeAddHD") && !call.starts_with("bridgeSetHA");
    });
    ASSERT_EQ(writes.size(), 2U);
    EXPECT_THAT(writes[0], testing::StartsWith("bridgeAddHDTableEntries"));
}

TEST_F(Adjusting, StreamsOfAClientThatCouldNotBePlacedAreNotMoved) {
    platform.fail("bridgeAddHDTableEntries", -1);
    EXPECT_EQ(period(), (outcome{ADJUSTS, 0}));
}

TEST_F(Adjusting, StreamsOfAClientThatIsThereAlreadyAreMoved) {
    platform.tables.erase(1);
    add_hd(1, 200, index_of("wlan1.1"));
    run();
    EXPECT_THAT(placements(), IsEmpty());
    EXPECT_EQ(calls_of("bridgeSetHATableEntries").size(), 1U);
}

TEST_F(Adjusting, ClientsArePlacedThoughTheHaTableCannotBeFetched) {
    platform.fail("bridgeTableAction", -1, 3); // behind the forwarding and the HD table
    clear_log();
    run_period();
    EXPECT_THAT(logged_texts("kolt_get_client_list_ha_entries"), ElementsAre("Error: update ha entires failed"));
    EXPECT_EQ(placements().size(), 1U);
    EXPECT_THAT(calls_of("bridgeSetHATableEntries"), IsEmpty());
    EXPECT_EQ(path_selection_ctx.last_adjust_status, 1) << "the period is an adjusting one all the same";
}

// ---- Estimated streams

class Estimating : public Adjusting {
protected:
    void SetUp() override {
        Adjusting::SetUp();
        config_.param.estimate_ack_enable = 1;
        write_file("/proc/net/dev", "wlan0.1: 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n"
                                    "wlan1.1: 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n");
        // With the one packet that an idle interface counts for: 2000 packets of 1400 bytes came, 1000 went.
        driver.bypassed[index_of("wlan0.1")] = {1999, 2800000, 999, 40000};
        platform.tables.erase(8);
        add_stream(1, "wlan0.1", 60000, 1000); // 60 bytes a packet
    }
    static bool estimated() {
        const lines texts = logged_texts("path_selection_update_uplink_ha_table");
        EXPECT_FALSE(texts.empty());
        return !texts.empty() && texts[0].find("num_bytes: 2800000") != std::string::npos &&
               texts[0].find("estimated: 1") != std::string::npos;
    }
};

TEST_F(Estimating, SmallPacketsAreWeighedByThePathsTraffic) {
    run();
    EXPECT_EQ(calls_of("get_if_stat_from_fcache").size(), 2U) << "of both present paths";
    EXPECT_TRUE(estimated());
}

TEST_F(Estimating, StreamsAreReadBeforeTheStatistics) {
    run();
    const auto position = [](const std::string &call) {
        return std::ranges::find_if(platform.calls, [&](const std::string &one) { return one.starts_with(call); });
    };
    ASSERT_NE(position("get_if_stat_from_fcache"), platform.calls.end());
    EXPECT_LT(position("get_maximal_ha_entries_from_fcache"), position("get_if_stat_from_fcache"));
}

TEST_F(Estimating, NothingIsEstimatedWhenItIsOff) {
    config_.param.estimate_ack_enable = 0;
    run();
    EXPECT_THAT(calls_of("get_if_stat_from_fcache"), IsEmpty());
    EXPECT_FALSE(estimated());
}

TEST_F(Estimating, NothingIsEstimatedInACalmPeriod) {
    set_load(50);
    run();
    EXPECT_THAT(calls_of("get_if_stat_from_fcache"), IsEmpty());
}

TEST_F(Estimating, NothingIsEstimatedWhenACounterCannotBeRead) {
    set_link(KOLT_LINK_5G_2, true);
    driver.radios["wlan2"] = {.tx_rate = 100, .rx_rate = 100, .util = 20};
    add_port("wlan2", KOLT_LINK_5G_2); // the path is called "wlan2.1", which has no counters
    run();
    EXPECT_THAT(logged_texts("path_selection_update_uplink_path_stats"),
                testing::Contains("Error: get wlan2.1 stat failed"));
    EXPECT_EQ(calls_of("get_if_stat_from_fcache").size(), 2U) << "the paths before it were read";
    EXPECT_FALSE(estimated());
}

// ---- Several bridges share the one status

class TwoBridges : public Adjusting {
protected:
    void SetUp() override {
        Adjusting::SetUp();
        add_bridge("br-guest");
        add_wifi("wlan5", KOLT_LINK_2G, 100, 90, "br-guest");
        add_wifi("wlan6", KOLT_LINK_5G, 300, 20, "br-guest");
        add_port("eth1", KOLT_LINK_ETHERNET, 0, 0, "br-guest");
        add_client(2, "eth1");
        add_hd(2, 201, index_of("wlan5.1"));
        add_stream(2, "wlan5.1", STREAM);
    }
    // The bridges whose streams were moved in a period.
    lines moved() {
        run();
        lines bridges;
        for (const std::string &call : calls_of("bridgeSetHATableEntries"))
            bridges.push_back(call.substr(call.find('(') + 1, call.find(',') - call.find('(') - 1));
        return bridges;
    }
};

TEST_F(TwoBridges, BothBridgesMoveStreamsWhenBothAreOverloaded) {
    EXPECT_THAT(moved(), ElementsAre("br-lan", "br-guest"));
    EXPECT_THAT(moved(), ElementsAre("br-lan", "br-guest"));
}

TEST_F(TwoBridges, CalmFirstBridgeKeepsTheSecondFromEverMovingStreams) {
    set_load(50);
    for (int i = 0; i < 3; i++) {
        EXPECT_THAT(moved(), IsEmpty());
        EXPECT_EQ(path_selection_ctx.last_adjust_status, 1) << "the last bridge decides";
    }
}

TEST_F(TwoBridges, CalmSecondBridgeKeepsTheFirstFromMovingStreamsAgain) {
    driver.radios["wlan5"].util = 50;
    EXPECT_THAT(moved(), ElementsAre("br-lan")) << "the status at process start";
    for (int i = 0; i < 3; i++) {
        EXPECT_THAT(moved(), IsEmpty());
        EXPECT_EQ(path_selection_ctx.last_adjust_status, 0);
    }
}

TEST_F(TwoBridges, OverloadedFirstBridgeMakesTheSecondsFirstOverloadCount) {
    set_load(50);
    driver.radios["wlan5"].util = 50;
    EXPECT_THAT(moved(), IsEmpty());
    set_load(90);
    driver.radios["wlan5"].util = 90;
    EXPECT_THAT(moved(), ElementsAre("br-guest"));
    EXPECT_THAT(moved(), ElementsAre("br-lan", "br-guest"));
}

TEST_F(TwoBridges, BridgeWithoutAMacLeavesTheStatusToTheOther) {
    driver.radios["wlan5"].util = 50;
    drop_interface("br-guest");
    EXPECT_THAT(moved(), ElementsAre("br-lan"));
    EXPECT_THAT(moved(), ElementsAre("br-lan")) << "the calm one did not get as far as telling";
    kept_descriptors_ = 2;
}

TEST_F(TwoBridges, PeriodOfAnotherWorkModeLeavesTheStatus) {
    set_work_mode("AP");
    run();
    EXPECT_EQ(path_selection_ctx.last_adjust_status, 1);
    path_selection_ctx.last_adjust_status = 0;
    run();
    EXPECT_EQ(path_selection_ctx.last_adjust_status, 0);
}

// The interface that both clients were learnt on goes while the parent is told of the first one's stream.
TEST_F(Adjusting, ClientBehindAWaitIsLookedUpAnew) {
    const uint32_t port = add_interface("eth5");
    write_file("/tmp/work_mode", R"({"work_mode": "RE", "parent_mac": "AA:BB:CC:0D:0E:0F"})");
    netlink.silent = true;
    netlink.at_request = [this] { drop_interface("eth5"); };
    std::vector<kolt_client> clients = {make_client(1, port), make_client(2, port)};
    for (kolt_client &client : clients)
        client.hd_port = index_of("wlan0.1");
    run_with_clients(clients);
    EXPECT_EQ(calls_of("bridgeSetHATableEntries").size(), 1U) << "the first client's stream was moved";
    EXPECT_THAT(texts(), testing::Contains("Error: error ifname").Times(1));
    EXPECT_THAT(texts(), testing::Not(testing::Contains(client_line(2, "eth5"))));
}

} // namespace
