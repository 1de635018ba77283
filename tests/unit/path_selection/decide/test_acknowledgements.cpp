// The traffic of a path in a period, and streams that only acknowledge it.
#include "path_selection/decide/acknowledgements.h"
#include "support/rows.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

constexpr uint32_t PORT = 30; // kernel index of the 5 GHz path

// ---- The thresholds of the estimate

struct stream_row {
    const char *name;
    uint32_t packets;
    uint32_t bytes;
    uint8_t factor;
    uint32_t size;
    uint32_t expected; // 0: as it was
};

class AckThreshold : public table_test<stream_row> {};

INSTANTIATE_TEST_SUITE_P(
    Rows, AckThreshold,
    testing::Values(stream_row{"BytesBelowTheLimit", 200000, 29999999, 2, 1400, 560000000},
                    stream_row{"BytesAtTheLimit", 200000, 30000000, 2, 1400, 0},
                    stream_row{"BytesAboveTheLimit", 200000, 30000001, 2, 1400, 0},
                    stream_row{"Mean199", 10, 1990, 2, 1400, 28000},
                    stream_row{"MeanTruncatedTo199", 10, 1999, 2, 1400, 28000},
                    stream_row{"Mean200", 10, 2000, 2, 1400, 0}, stream_row{"Mean201", 10, 2010, 2, 1400, 0},
                    stream_row{"EstimateBelowTheMean", 10, 600, 1, 59, 0},
                    stream_row{"EstimateEqualToTheMean", 10, 600, 1, 60, 0},
                    stream_row{"EstimateAboveTheMean", 10, 600, 1, 61, 610},
                    stream_row{"EstimateAboveTheTruncatedMean", 10, 609, 1, 61, 610},
                    stream_row{"NoBytes", 10, 0, 2, 1400, 28000}, stream_row{"OnePacket", 1, 40, 3, 500, 1500},
                    stream_row{"NoPackets", 0, 60, 2, 1400, 0}, stream_row{"NothingMeasured", 10, 600, 0, 0, 0},
                    // 200000 * 30000 is 6000000000, less 2^32.
                    stream_row{"ProductWraps", 200000, 12000000, 20, 1500, 1705032704},
                    // 255 * 16843010 is 2^32 + 254.
                    stream_row{"EstimateWraps", 10, 600, 255, 16843010, 2540}),
    row_name<stream_row>);

TEST_P(AckThreshold, ThresholdDecidesWhetherAStreamIsRewritten) {
    const stream_row &row = GetParam();
    ps_history_table histories;
    histories[KOLT_LINK_5G].ifindex = PORT;
    histories[KOLT_LINK_5G].rx_tx_factor = row.factor;
    histories[KOLT_LINK_5G].rx_pkt_size = row.size;
    ha_entry streams[1];
    streams[0].port = PORT;
    streams[0].num_pkts = row.packets;
    streams[0].num_bytes = row.bytes;
    ps_estimate_acknowledgements(histories, streams);
    EXPECT_EQ(streams[0].num_bytes, row.expected != 0 ? row.expected : row.bytes);
    EXPECT_EQ(streams[0].estimated, row.expected != 0 ? 1 : 0);
}

// ---- What the kernel counted

TEST(KernelTraffic, TrafficIsTheDifferenceOfTheLow32Bits) {
    kolt_if_stat before;
    before.rx_bytes = 0xFFFFFFFFULL;
    before.tx_bytes = 0x1FFFFFFFFULL;
    before.rx_packets = 0xFFFFFFFEULL;
    before.tx_packets = 0x2FFFFFFF0ULL;
    kolt_if_stat now;
    now.rx_bytes = 0x700000009ULL;
    now.tx_bytes = 0x13;
    now.rx_packets = 3;
    now.tx_packets = 0x900000002ULL;
    const ps_traffic moved = ps_kernel_traffic(before, now);
    EXPECT_EQ(moved.rx_bytes, 10U);
    EXPECT_EQ(moved.tx_bytes, 20U);
    EXPECT_EQ(moved.rx_packets, 5U);
    EXPECT_EQ(moved.tx_packets, 18U);
}

TEST(KernelTraffic, TrafficHasAtLeastOnePacketInEachDirection) {
    const ps_traffic moved = ps_kernel_traffic({}, {});
    EXPECT_EQ(moved.rx_packets, 1U);
    EXPECT_EQ(moved.tx_packets, 1U);
    EXPECT_EQ(moved.rx_bytes, 0U);
    EXPECT_EQ(moved.tx_bytes, 0U);
}

// ---- What a history takes

struct factor_row {
    const char *name;
    uint32_t rx_packets;
    uint32_t tx_packets;
    int expected;
};

class ReceivedPerSent : public table_test<factor_row> {};

INSTANTIATE_TEST_SUITE_P(Rows, ReceivedPerSent,
                         testing::Values(factor_row{"Equal", 5, 5, 1}, factor_row{"Fewer", 4, 5, 1},
                                         factor_row{"Twice", 10, 5, 2}, factor_row{"NearlyThrice", 14, 5, 2},
                                         factor_row{"NoneSent", 7, 0, 7}, factor_row{"NoneReceived", 0, 7, 1},
                                         factor_row{"None", 0, 0, 1}, factor_row{"Largest", 255, 1, 255},
                                         factor_row{"TruncatedToZero", 256, 1, 1},
                                         factor_row{"TruncatedToOne", 257, 1, 1},
                                         factor_row{"TruncatedTo44", 300, 1, 44}),
                         row_name<factor_row>);

TEST_P(ReceivedPerSent, RatioIsTruncatedToEightBitsAndAtLeastOne) {
    ps_path_history history;
    ps_take_traffic(&history, {.rx_packets = GetParam().rx_packets, .tx_packets = GetParam().tx_packets});
    EXPECT_EQ(history.rx_tx_factor, GetParam().expected);
}

TEST(TakenTraffic, TrafficGivesTheMeanSizeOfAReceivedPacket) {
    ps_path_history history;
    ps_take_traffic(&history, {.rx_bytes = 14999, .rx_packets = 10});
    EXPECT_EQ(history.rx_pkt_size, 1499U);
    ps_take_traffic(&history, {.rx_bytes = 777, .rx_packets = 0});
    EXPECT_EQ(history.rx_pkt_size, 777U) << "no packet counts as one";
}

TEST(TakenTraffic, ReceivingDirectionIsSelectedOnlyWhenItMovedMoreBytes) {
    ps_path_history history;
    ps_take_traffic(&history, {.rx_bytes = 101, .tx_bytes = 100});
    EXPECT_EQ(history.rx_selected, 1);
    ps_take_traffic(&history, {.rx_bytes = 100, .tx_bytes = 100});
    EXPECT_EQ(history.rx_selected, 0);
    ps_take_traffic(&history, {.rx_bytes = 99, .tx_bytes = 100});
    EXPECT_EQ(history.rx_selected, 0);
}

TEST(TakenTraffic, TotalsMoveUpAndTheLastSlotStays) {
    ps_path_history history;
    for (uint32_t slot = 0; slot < PS_DATA_RATES; slot++)
        history.data_rate[slot] = (slot + 1) * 10;
    ps_take_traffic(&history, {.rx_bytes = 3, .tx_bytes = 4});
    EXPECT_THAT(history.data_rate, ElementsAre(7U, 30U, 40U, 50U, 50U));
}

TEST(TakenTraffic, TotalWrapsAt32Bits) {
    ps_path_history history;
    ps_take_traffic(&history, {.rx_bytes = 0xFFFFFFFFU, .tx_bytes = 6});
    EXPECT_EQ(history.data_rate[0], 5U);
}

} // namespace
