// The walk over a client's streams; the counting and the move of one stream have test files of their own.
#include "path_selection/ha_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char BALANCING[] = "path_selection_update_uplink_ha_table";

// ---- Balancing a client

class Balancing : public HaStreams {
protected:
    void SetUp() override {
        HaStreams::SetUp();
        config_.param.adjusted_streams = 20;
        config_.param.adjusted_ratio = 100;
    }

    void balance(size_t client = 0) {
        path_selection_update_uplink_ha_table(at(), clients_[client]);
    }

    // The texts of the balancing itself, without the list of the streams.
    static std::vector<std::string> steps() {
        std::vector<std::string> texts;
        for (const std::string &text : logged_texts(BALANCING)) {
            if (text.rfind("Debug: ha[", 0) != 0)
                texts.push_back(text);
        }
        return texts;
    }
};

TEST_F(Balancing, StreamOfAnOverloadedPathIsMovedToTheBest) {
    set_streams({stream(HOT_PORT, 1500)});
    balance();
    EXPECT_THAT(platform.calls,
                ElementsAre("bridgeSetHATableEntries(br-lan, 200, 00:11:22:33:44:55, 66:77:88:99:AA:BB, 5000, 80, "
                            "wlan1.1, 3, 4000000000)"));
    EXPECT_EQ(best_.quota, 8500);
    EXPECT_EQ(clients_[0].ha[0].port, HOT_PORT);
}

TEST_F(Balancing, BalancingIsToldStepByStep) {
    const at_log_level debug(2);
    set_streams({stream(HOT_PORT, 1500)});
    balance();
    EXPECT_THAT(
        logged(),
        ElementsAre(log_line{LOG_DEBUG, BALANCING,
                             "Debug: ha[0]: hash: 200, src_port: 5000, dst_port: 80, port: 60, num_bytes: 96000000, "
                             "num_pkts: 0, num_txbytes: 0, num_rxbytes: 0, estimated: 0, is_fcache: 0, flow_idx: 0"},
                    log_line{LOG_DEBUG, BALANCING, "Debug: adjust_num: 1"},
                    log_line{LOG_INFO, "path_selection_update_ha_entry",
                             "Info: set ha entry success, src_port: 5000, dst_port: 80, client mac: 66:77:88:99:AA:BB, "
                             "old path: 60, new path: wlan1.1"},
                    log_line{LOG_INFO, BALANCING, "Info: ha_rate: 1500, req_quota: 1500, quota remain: 8500"},
                    log_line{LOG_DEBUG, BALANCING, "Debug: adjust_real_count: 1"}));
}

TEST_F(Balancing, RateIsToldInItsOwnUnit) {
    best_.rate = 300;
    set_streams({stream(HOT_PORT, 15)});
    balance();
    EXPECT_THAT(steps(), ElementsAre("Info: ha_rate: 15, req_quota: 500, quota remain: 9500"));
}

TEST_F(Balancing, BalancingIsNotToldAtLevelZero) {
    const at_log_level quiet(0);
    set_streams({stream(HOT_PORT, 1500)});
    balance();
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(best_.quota, 8500);
}

TEST_F(Balancing, AtMostTheConfiguredNumberOfStreamsIsMoved) {
    config_.param.adjusted_streams = 1;
    const at_log_level debug(2);
    set_streams({stream(HOT_PORT, 10), stream(HOT_PORT, 10), stream(HOT_PORT, 10)});
    balance();
    EXPECT_EQ(moved(), 1U);
    EXPECT_EQ(best_.quota, 9990);
    EXPECT_EQ(steps().front(), "Debug: adjust_num: 3");
    EXPECT_EQ(steps().back(), "Debug: adjust_real_count: 1");
}

TEST_F(Balancing, NoStreamIsMovedWhenNoneIsConfigured) {
    config_.param.adjusted_streams = 0;
    set_streams({stream(HOT_PORT, 10)});
    balance();
    EXPECT_EQ(moved(), 0U);
}

TEST_F(Balancing, NoMoreStreamsAreMovedThanTheBestPathCanTake) {
    config_.param.adjusted_ratio = 1; // a budget of 100
    set_streams({stream(HOT_PORT, 60), stream(HOT_PORT, 60), stream(HOT_PORT, 60)});
    balance();
    EXPECT_EQ(moved(), 2U);
    EXPECT_EQ(best_.quota, 9880);
}

TEST_F(Balancing, Quota2000Takes1500AndSkips1000) {
    best_.quota = 2000;
    set_streams({stream(HOT_PORT, 1500), stream(HOT_PORT, 1000)});
    balance();
    EXPECT_EQ(moved(), 1U);
    EXPECT_EQ(best_.quota, 500);
}

TEST_F(Balancing, StreamThatIsTooLargeIsSkippedAndALaterOneIsMoved) {
    best_.quota = 2000;
    config_.param.adjusted_ratio = 200; // a budget of 4000
    set_streams({stream(HOT_PORT, 1500), stream(HOT_PORT, 1000), stream(HOT_PORT, 400)});
    balance();
    EXPECT_EQ(moved(), 2U);
    EXPECT_EQ(best_.quota, 100);
    EXPECT_THAT(steps(), ElementsAre("Info: ha_rate: 1500, req_quota: 1500, quota remain: 500",
                                     "Info: ha_rate: 400, req_quota: 400, quota remain: 100"));
}

TEST_F(Balancing, StreamFitsOnlyBelowTheQuota) {
    best_.quota = 1000;
    set_streams({stream(HOT_PORT, 1000)});
    balance();
    EXPECT_EQ(moved(), 0U);
    EXPECT_EQ(best_.quota, 1000);
    set_streams({stream(HOT_PORT, 999)});
    balance();
    EXPECT_EQ(moved(), 1U);
    EXPECT_EQ(best_.quota, 1);
}

TEST_F(Balancing, StreamOfMoreThanHalfTheRangeIsTooLarge) {
    // 300000 units on a path of rate 1 are 3000000000, which is not a negative number.
    config_.param.period = 1;
    best_.rate = 1;
    ha_entry huge = stream(HOT_PORT, 0);
    huge.num_bytes = 300000U * 64;
    set_streams({huge});
    balance();
    EXPECT_EQ(moved(), 0U);
    EXPECT_EQ(best_.quota, 10000);
}

TEST_F(Balancing, StreamOnTheBestPathIsSkipped) {
    best_.util = 90; // hot itself, and so is not among the reasons
    paths_[KOLT_LINK_2G].util = 101;
    set_streams({stream(BEST_PORT, 10), stream(HOT_PORT, 20)});
    balance();
    EXPECT_EQ(moved(), 1U);
    EXPECT_EQ(best_.quota, 9980);
}

TEST_F(Balancing, StreamOnTheBestPathIsSkippedThoughItLooksOverloaded) {
    best_.util = 80;
    best_.util_adjustment = 11; // 91 against its own 80
    paths_[KOLT_LINK_2G] = {};
    set_streams({stream(BEST_PORT, 10), stream(COOL_PORT, 10)});
    const at_log_level debug(2);
    balance();
    EXPECT_EQ(moved(), 0U);
    EXPECT_THAT(steps(), ElementsAre("Debug: adjust_num: 1", "Debug: adjust_real_count: 0"));
}

TEST_F(Balancing, StreamOfAPathThatIsNotOverloadedIsSkipped) {
    set_streams({stream(COOL_PORT, 10), stream(HOT_PORT, 20)});
    balance();
    EXPECT_EQ(moved(), 1U);
    EXPECT_EQ(best_.quota, 9980);
}

TEST_F(Balancing, StreamOfAPortWithoutANameIsToldAndNotMoved) {
    set_streams({stream(999, 10), stream(HOT_PORT, 20)});
    balance();
    EXPECT_EQ(moved(), 1U);
    EXPECT_EQ(logged().front(), (log_line{LOG_ERR, "path_selection_get_path_by_port", "Error: get interface name"}));
}

TEST_F(Balancing, WalkStopsAtAStepOf0) {
    // The first one counts for adjust_num and is passed over; the third one would move.
    set_streams({stream(COOL_PORT, 10), stream(HOT_PORT, 0), stream(HOT_PORT, 10)});
    balance();
    EXPECT_EQ(moved(), 0U);
}

TEST_F(Balancing, StepOf0OfAPathThatIsNotOverloadedDoesNotStopTheWalk) {
    set_streams({stream(COOL_PORT, 10), stream(COOL_PORT, 0), stream(HOT_PORT, 10)});
    balance();
    EXPECT_EQ(moved(), 1U);
}

TEST_F(Balancing, WalkStopsAtTheFirstEmptyStream) {
    set_streams({stream(COOL_PORT, 10), ha_entry{}, stream(HOT_PORT, 10)});
    balance();
    EXPECT_EQ(moved(), 0U);
}

TEST_F(Balancing, TwentyStreamsAndNoMoreAreVisited) {
    config_.param.adjusted_streams = 255;
    clients_[1].ha[0] = stream(HOT_PORT, 10); // right behind the first client's
    set_streams(std::vector<ha_entry>(20, stream(HOT_PORT, 10)));
    balance();
    EXPECT_EQ(moved(), 20U);
    EXPECT_EQ(best_.quota, 9800);
}

TEST_F(Balancing, LastOfTwentyStreamsIsVisited) {
    std::vector<ha_entry> streams(20, stream(COOL_PORT, 10));
    streams.back() = stream(HOT_PORT, 10);
    set_streams(streams);
    balance();
    EXPECT_EQ(moved(), 1U);
}

TEST_F(Balancing, MoveThatFailsTakesNoQuotaAndDoesNotCount) {
    config_.param.adjusted_streams = 1;
    const at_log_level debug(2);
    platform.fail("bridgeSetHATableEntries", -1, 1);
    set_streams({stream(HOT_PORT, 100), stream(HOT_PORT, 20)});
    balance();
    EXPECT_EQ(moved(), 2U) << "the second one is tried";
    EXPECT_EQ(best_.quota, 9980);
    EXPECT_THAT(steps(), ElementsAre("Debug: adjust_num: 2", "Info: ha_rate: 20, req_quota: 20, quota remain: 9980",
                                     "Debug: adjust_real_count: 1"));
}

TEST_F(Balancing, LaterClientsSeeTheQuotaThatEarlierOnesUsed) {
    best_.quota = 2000;
    set_streams({stream(HOT_PORT, 1500)}, 0);
    set_streams({stream(HOT_PORT, 600), stream(HOT_PORT, 499)}, 1);
    balance(0);
    EXPECT_EQ(best_.quota, 500);
    clear_log();
    const at_log_level debug(2);
    balance(1);
    // 600 exceeds the budget of 500, so that one stream may move; the first is too large, the second is not.
    EXPECT_THAT(steps(), ElementsAre("Debug: adjust_num: 1", "Info: ha_rate: 499, req_quota: 499, quota remain: 1",
                                     "Debug: adjust_real_count: 1"));
    EXPECT_EQ(best_.quota, 1);
}

// ---- Who is not balanced

TEST_F(Balancing, RelayClientIsListedButNeverBalanced) {
    const at_log_level debug(2);
    for (const uint8_t relay : {uint8_t{1}, uint8_t{2}}) {
        clear_log();
        clients_[0].relay = relay;
        set_streams({stream(HOT_PORT, 10)});
        balance();
        EXPECT_EQ(moved(), 0U);
        EXPECT_THAT(logged_texts(), ElementsAre(testing::StartsWith("Debug: ha[0]: ")));
    }
}

TEST_F(Balancing, BestPathWithoutQuotaTakesNothing) {
    const at_log_level debug(2);
    for (const int16_t quota : {int16_t{0}, int16_t{-1}}) {
        clear_log();
        best_.quota = quota;
        set_streams({stream(HOT_PORT, 10)});
        balance();
        EXPECT_THAT(logged_texts(), ElementsAre(testing::StartsWith("Debug: ha[0]: ")));
    }
    best_.quota = 1;
    clear_log();
    balance();
    EXPECT_THAT(steps(), ElementsAre("Debug: adjust_num: 1", "Debug: adjust_real_count: 0"));
}

// ---- The list of the streams

TEST_F(Balancing, EveryFieldOfAStreamIsListed) {
    const at_log_level debug(2);
    clients_[0].relay = 1;
    ha_entry entry = stream(4000000000U, 0);
    entry.hash = 65535;
    entry.src_port = 65534;
    entry.dst_port = 65533;
    entry.num_bytes = 4294967295U;
    entry.num_pkts = 4294967294U;
    entry.num_txbytes = 4294967293U;
    entry.num_rxbytes = 4294967292U;
    entry.estimated = 1;
    entry.is_fcache = 2;
    entry.flow_idx = 4294967295U;
    set_streams({stream(HOT_PORT, 1), entry});
    balance();
    ASSERT_EQ(logged().size(), 2U);
    EXPECT_EQ(logged()[1].text,
              "Debug: ha[1]: hash: 65535, src_port: 65534, dst_port: 65533, port: -294967296, num_bytes: 4294967295, "
              "num_pkts: 4294967294, num_txbytes: 4294967293, num_rxbytes: 4294967292, estimated: 1, is_fcache: 2, "
              "flow_idx: -1");
}

TEST_F(Balancing, StreamsAreListedUpToTheFirstEmptyOneAndAtMostTwenty) {
    const at_log_level debug(2);
    clients_[0].relay = 1;
    set_streams({stream(HOT_PORT, 1), stream(HOT_PORT, 1), ha_entry{}, stream(HOT_PORT, 1)});
    balance();
    EXPECT_EQ(logged().size(), 2U);
    clear_log();
    clients_[1].mac[0] = 1;
    set_streams(std::vector<ha_entry>(20, stream(HOT_PORT, 1)));
    balance();
    EXPECT_EQ(logged().size(), 20U);
    EXPECT_THAT(logged().back().text, testing::StartsWith("Debug: ha[19]: "));
}

TEST_F(Balancing, StreamsAreNotListedBelowDebugLevel) {
    const at_log_level info(1);
    set_streams({stream(COOL_PORT, 1)});
    balance();
    EXPECT_THAT(logged(), IsEmpty());
}

} // namespace
