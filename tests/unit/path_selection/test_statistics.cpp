// The traffic of the paths in a period.
#include "path_selection/measured_test.h"
#include "path_selection/statistics.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What the scripted flow cache tells of any interface.
uint32_t cached_rx_packets, cached_rx_bytes, cached_tx_packets, cached_tx_bytes;

const wlan_platform cache_table = [] {
    wlan_platform table = recording::table;
    table.get_if_stat_from_fcache = [](uint32_t ifindex, uint32_t *rx_packets, uint32_t *rx_bytes, uint32_t *tx_packets,
                                       uint32_t *tx_bytes) {
        *rx_packets = cached_rx_packets;
        *rx_bytes = cached_rx_bytes;
        *tx_packets = cached_tx_packets;
        *tx_bytes = cached_tx_bytes;
        return recording::call("get_if_stat_from_fcache", ifindex);
    };
    return table;
}();

struct counters {
    uint64_t rx_bytes = 0;
    uint64_t rx_packets = 0;
    uint64_t tx_bytes = 0;
    uint64_t tx_packets = 0;
};

std::string line_of(const char *name, const counters &told) {
    return std::string(name) + ": " + std::to_string(told.rx_bytes) + " " + std::to_string(told.rx_packets) +
           " 0 0 0 0 0 0 " + std::to_string(told.tx_bytes) + " " + std::to_string(told.tx_packets) + " 0 0 0 0 0 0\n";
}

class PathStatistics : public MeasuredPaths {
protected:
    void SetUp() override {
        MeasuredPaths::SetUp();
        cached_rx_packets = cached_rx_bytes = cached_tx_packets = cached_tx_bytes = 0;
        add_row(KOLT_LINK_5G, "wlan1.1");
    }

    int update() {
        return path_selection_update_uplink_path_stats("br-lan", &paths_, &path_selection_ctx.histories);
    }

    // A period of the 5 GHz path in which its counters read so.
    int update(const counters &told) {
        write_file("/proc/net/dev", line_of("wlan1.1", told));
        return update();
    }

    ps_path_history &history_ = path_selection_ctx.histories[KOLT_LINK_5G];
};

TEST_F(PathStatistics, StatisticsAreRefusedWithoutATable) {
    EXPECT_EQ(path_selection_update_uplink_path_stats("br-lan", nullptr, &path_selection_ctx.histories), 0);
    EXPECT_EQ(path_selection_update_uplink_path_stats("br-lan", &paths_, nullptr), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(PathStatistics, StatisticsOfNoPresentRowSucceed) {
    paths_ = {};
    remove_file("/proc/net/dev");
    EXPECT_EQ(update(), 1);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(PathStatistics, CountersOfThisPeriodAndOfTheOneBeforeAreKept) {
    EXPECT_EQ(update({100, 2, 300, 4}), 1);
    EXPECT_EQ(history_.prev_stat.rx_bytes, 0U);
    EXPECT_EQ(update({1100, 12, 1300, 14}), 1);
    EXPECT_EQ(history_.prev_stat.rx_bytes, 100U);
    EXPECT_EQ(history_.prev_stat.rx_packets, 2U);
    EXPECT_EQ(history_.prev_stat.tx_bytes, 300U);
    EXPECT_EQ(history_.prev_stat.tx_packets, 4U);
    EXPECT_EQ(history_.cur_stat.rx_bytes, 1100U);
    EXPECT_EQ(history_.cur_stat.rx_packets, 12U);
    EXPECT_EQ(history_.cur_stat.tx_bytes, 1300U);
    EXPECT_EQ(history_.cur_stat.tx_packets, 14U);
}

TEST_F(PathStatistics, InterfaceIndexIsRefreshed) {
    history_.ifindex = 4711;
    {
        const test_interface port("wlan1.1", 40);
        EXPECT_EQ(update({1, 1, 1, 1}), 1);
        EXPECT_EQ(history_.ifindex, 40U);
    }
    EXPECT_EQ(update({1, 1, 1, 1}), 1);
    EXPECT_EQ(history_.ifindex, 0U) << "a name that the kernel does not know";
}

TEST_F(PathStatistics, MeanOfTheDifferencesIsTaken) {
    ASSERT_EQ(update({5000, 50, 6000, 60}), 1);
    ASSERT_EQ(update({5000 + 14999, 50 + 10, 6000 + 900, 60 + 4}), 1);
    EXPECT_EQ(history_.rx_tx_factor, 2) << "10 / 4";
    EXPECT_EQ(history_.rx_pkt_size, 1499U);
    EXPECT_EQ(history_.rx_selected, 1);
}

TEST_F(PathStatistics, MeanSizeWithoutAnyPacketIsThatOfOne) {
    EXPECT_EQ(update({777, 0, 0, 0}), 1);
    EXPECT_EQ(history_.rx_pkt_size, 777U);
}

TEST_F(PathStatistics, ReceivingDirectionIsSelectedOnlyWhenItMovedMoreBytes) {
    ASSERT_EQ(update({101, 1, 100, 1}), 1);
    EXPECT_EQ(history_.rx_selected, 1);
    ASSERT_EQ(update({201, 2, 200, 2}), 1);
    EXPECT_EQ(history_.rx_selected, 0) << "equal";
    ASSERT_EQ(update({301, 3, 301, 3}), 1);
    EXPECT_EQ(history_.rx_selected, 0) << "less";
}

// ---- 32 bits

TEST_F(PathStatistics, DifferencesAreThoseOfTheLow32Bits) {
    ASSERT_EQ(update({0xFFFFFFFFULL, 0xFFFFFFFEULL, 0x1FFFFFFFFULL, 0x2FFFFFFF0ULL}), 1);
    // 9 + 1 bytes and 3 + 2 packets came, 19 + 1 bytes and 2 + 16 packets went, whatever the upper halves say.
    ASSERT_EQ(update({0x700000009ULL, 3, 0x13, 0x900000002ULL}), 1);
    EXPECT_EQ(history_.data_rate[0], 30U);
    EXPECT_EQ(history_.rx_pkt_size, 2U);
    EXPECT_EQ(history_.rx_tx_factor, 1);
    EXPECT_EQ(history_.cur_stat.rx_bytes, 0x700000009ULL) << "the counters are kept whole";
}

TEST_F(PathStatistics, DifferenceOfAMultipleOf32BitsIsNone) {
    ASSERT_EQ(update({1, 1, 1, 1}), 1);
    ASSERT_EQ(update({0x100000001ULL, 0x100000001ULL, 0x100000001ULL, 0x100000001ULL}), 1);
    EXPECT_EQ(history_.data_rate[0], 0U);
    EXPECT_EQ(history_.rx_tx_factor, 1);
}

TEST_F(PathStatistics, TotalWrapsAt32Bits) {
    ASSERT_EQ(update({0xFFFFFFFFULL, 1, 6, 1}), 1);
    EXPECT_EQ(history_.data_rate[0], 5U);
}

// ---- The flow cache

TEST_F(PathStatistics, WhatWentPastTheKernelIsAdded) {
    const test_interface port("wlan1.1", 41);
    const installed_table installed(&cache_table);
    platform.fail("get_if_stat_from_fcache", 1);
    cached_rx_bytes = 1000;
    cached_rx_packets = 6;
    cached_tx_bytes = 3000;
    cached_tx_packets = 1;
    ASSERT_EQ(update({200, 4, 100, 4}), 1);
    EXPECT_THAT(platform.calls, ElementsAre("get_if_stat_from_fcache(41)"));
    EXPECT_EQ(history_.rx_tx_factor, 2) << "10 / 5";
    EXPECT_EQ(history_.rx_pkt_size, 120U) << "1200 / 10";
    EXPECT_EQ(history_.rx_selected, 0) << "1200 against 3100";
    EXPECT_EQ(history_.data_rate[0], 4300U);
}

TEST_F(PathStatistics, NoPacketIsReplacedByOneBeforeTheCachedOnesAreAdded) {
    const installed_table installed(&cache_table);
    platform.fail("get_if_stat_from_fcache", 1);
    cached_rx_bytes = 1000;
    cached_rx_packets = 9;
    cached_tx_packets = 1;
    ASSERT_EQ(update({0, 0, 0, 0}), 1);
    EXPECT_EQ(history_.rx_tx_factor, 5) << "10 / 2";
    EXPECT_EQ(history_.rx_pkt_size, 100U);
}

TEST_F(PathStatistics, CachedCountsWrapAt32Bits) {
    const installed_table installed(&cache_table);
    platform.fail("get_if_stat_from_fcache", 1);
    cached_rx_bytes = 0xFFFFFFFFU;
    ASSERT_EQ(update({11, 1, 0, 1}), 1);
    EXPECT_EQ(history_.rx_pkt_size, 10U);
    EXPECT_EQ(history_.data_rate[0], 10U);
}

TEST_F(PathStatistics, PacketsThatWrapToZeroDoNotDivide) {
    const installed_table installed(&cache_table);
    platform.fail("get_if_stat_from_fcache", 1);
    cached_rx_packets = 0xFFFFFFFFU;
    cached_tx_packets = 0xFFFFFFFFU;
    ASSERT_EQ(update({100, 1, 100, 1}), 1);
    EXPECT_EQ(history_.rx_tx_factor, 1);
}

TEST_F(PathStatistics, KernelsCountersStandAloneWithoutAFlowCache) {
    const installed_table installed(nullptr);
    ASSERT_EQ(update({500, 5, 100, 5}), 1);
    EXPECT_EQ(history_.rx_pkt_size, 100U);
    EXPECT_EQ(history_.data_rate[0], 600U);
}

// ---- The totals

TEST_F(PathStatistics, TotalsOneTwoAndThreeLeaveOnlyTheLast) {
    ASSERT_EQ(update({1, 1, 0, 0}), 1);
    EXPECT_THAT(history_.data_rate, ElementsAre(1U, 0U, 0U, 0U, 0U));
    ASSERT_EQ(update({2, 2, 1, 1}), 1);
    EXPECT_THAT(history_.data_rate, ElementsAre(2U, 0U, 0U, 0U, 0U));
    ASSERT_EQ(update({4, 3, 2, 2}), 1);
    EXPECT_THAT(history_.data_rate, ElementsAre(3U, 0U, 0U, 0U, 0U));
}

TEST_F(PathStatistics, TotalsMoveDownAndTheLastSlotKeepsItsOwn) {
    const uint32_t before[] = {10, 20, 30, 40, 50};
    std::copy(std::begin(before), std::end(before), history_.data_rate);
    ASSERT_EQ(update({3, 1, 4, 1}), 1);
    EXPECT_THAT(history_.data_rate, ElementsAre(7U, 30U, 40U, 50U, 50U));
}

// ---- Several rows, failure and log

TEST_F(PathStatistics, StatisticsAreTakenOfEveryPresentRow) {
    add_row(KOLT_LINK_ETHERNET, "eth0");
    add_row(KOLT_LINK_5G_2, "wlan2.1");
    write_file("/proc/net/dev",
               line_of("eth0", {1, 1, 0, 0}) + line_of("wlan1.1", {2, 1, 0, 0}) + line_of("wlan2.1", {3, 1, 0, 0}));
    EXPECT_EQ(update(), 1);
    const ps_history_table &histories = path_selection_ctx.histories;
    EXPECT_EQ(histories[0].data_rate[0], 1U);
    EXPECT_EQ(histories[1].rx_tx_factor, 0) << "absent";
    EXPECT_EQ(histories[2].rx_tx_factor, 0) << "absent";
    EXPECT_EQ(histories[3].data_rate[0], 2U);
    EXPECT_EQ(histories[4].data_rate[0], 3U);
}

TEST_F(PathStatistics, StatisticsEndAtARowWithoutCounters) {
    add_row(KOLT_LINK_2G, "wlan0.1");
    add_row(KOLT_LINK_5G_2, "wlan2.1");
    history_.cur_stat.rx_bytes = 42;
    history_.ifindex = 43;
    history_.data_rate[0] = 44;
    write_file("/proc/net/dev", line_of("wlan0.1", {1, 1, 0, 0}) + line_of("wlan2.1", {3, 1, 0, 0}));
    EXPECT_EQ(update(), 0);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_ERR, "path_selection_update_uplink_path_stats",
                                               "Error: get wlan1.1 stat failed"}));
    const ps_history_table &histories = path_selection_ctx.histories;
    EXPECT_EQ(histories[2].data_rate[0], 1U);
    EXPECT_EQ(history_.cur_stat.rx_bytes, 42U);
    EXPECT_EQ(history_.prev_stat.rx_bytes, 0U);
    EXPECT_EQ(history_.ifindex, 43U);
    EXPECT_EQ(history_.data_rate[0], 44U);
    EXPECT_EQ(histories[4].rx_tx_factor, 0) << "rows behind it keep their old histories";
}

TEST_F(PathStatistics, FailureIsToldAtEveryLevelWithANameThatFillsItsField) {
    const at_log_level quiet(0);
    kolt_copy_name(paths_[KOLT_LINK_5G].name, "wlan1-abcdefghij");
    write_file("/proc/net/dev", "");
    EXPECT_EQ(update(), 0);
    EXPECT_THAT(logged_texts(), ElementsAre("Error: get wlan1-abcdefghij stat failed"));
}

TEST_F(PathStatistics, StatisticsAreToldAtDebugLevelWithTheCachedBytes) {
    const at_log_level debug(2);
    const installed_table installed(&cache_table);
    platform.fail("get_if_stat_from_fcache", 1);
    cached_rx_bytes = 1000;
    cached_tx_bytes = 3000000000U;
    ASSERT_EQ(update({200, 4, 100, 4}), 1);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_DEBUG, "path_selection_update_uplink_path_stats",
                                               "Debug: path: wlan1.1, diff_rx_bytes: 1200, "
                                               "diff_tx_bytes: -1294967196"}));
}

TEST_F(PathStatistics, StatisticsAreNotToldBelowDebugLevel) {
    const at_log_level info(1);
    ASSERT_EQ(update({200, 4, 100, 4}), 1);
    EXPECT_THAT(logged(), IsEmpty());
}

} // namespace
