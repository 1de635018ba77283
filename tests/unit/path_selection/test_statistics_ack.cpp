// Streams of acknowledgements are made to weigh as much as what they acknowledge.
#include "path_selection/measured_test.h"

namespace {

using testing::IsEmpty;

constexpr uint32_t PORT = 30; // kernel index of the 5 GHz path

class AckEstimate : public MeasuredPaths {
protected:
    void SetUp() override {
        MeasuredPaths::SetUp();
        for (uint32_t type = 0; type < 5; type++)
            histories_[type].ifindex = 1000 + type;
        histories_[3].ifindex = PORT;
        histories_[3].rx_tx_factor = 2;
        histories_[3].rx_pkt_size = 1400;
        clients_.resize(2);
    }

    static ha_entry stream(uint32_t packets, uint32_t bytes, uint32_t port = PORT) {
        ha_entry entry;
        entry.port = port;
        entry.num_pkts = packets;
        entry.num_bytes = bytes;
        return entry;
    }

    void estimate(uint8_t count = 1) {
        kolt_client_list list{.count = count, .clients = clients_.data()};
        path_selection_estimate_ack_streams(&histories_, &list);
    }

    static bool untouched(const ha_entry &entry, uint32_t bytes) {
        return entry.num_bytes == bytes && entry.estimated == 0;
    }

    ps_history_table histories_;
    std::vector<kolt_client> clients_;
};

TEST_F(AckEstimate, OfThousandPacketsAnd60000BytesIs2800000Bytes) {
    clients_[0].ha[0] = stream(1000, 60000);
    estimate();
    EXPECT_EQ(clients_[0].ha[0].num_bytes, 2800000U);
    EXPECT_EQ(clients_[0].ha[0].num_pkts, 1000U);
    EXPECT_EQ(clients_[0].ha[0].estimated, 1);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(AckEstimate, WithoutATableDoesNothing) {
    clients_[0].ha[0] = stream(1000, 60000);
    kolt_client_list list{.count = 1, .clients = clients_.data()};
    path_selection_estimate_ack_streams(nullptr, &list);
    path_selection_estimate_ack_streams(&histories_, nullptr);
    EXPECT_TRUE(untouched(clients_[0].ha[0], 60000));
}

// ---- The thresholds

struct stream_row {
    const char *name;
    uint32_t packets;
    uint32_t bytes;
    uint8_t factor;
    uint32_t size;
    uint32_t expected; // 0: as it was
};

void PrintTo(const stream_row &row, std::ostream *out) {
    *out << row.name;
}

class AckThreshold : public AckEstimate, public testing::WithParamInterface<stream_row> {};

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
    case_name);

TEST_P(AckThreshold, DecidesWhetherAStreamIsRewritten) {
    const stream_row &row = GetParam();
    histories_[3].rx_tx_factor = row.factor;
    histories_[3].rx_pkt_size = row.size;
    clients_[0].ha[0] = stream(row.packets, row.bytes);
    estimate();
    EXPECT_EQ(clients_[0].ha[0].num_bytes, row.expected != 0 ? row.expected : row.bytes);
    EXPECT_EQ(clients_[0].ha[0].estimated, row.expected != 0 ? 1 : 0);
}

// ---- Which streams

TEST_F(AckEstimate, LeavesAStreamOfAnUnknownPortAndGoesOn) {
    clients_[0].ha[0] = stream(1000, 60000, 99);
    clients_[0].ha[1] = stream(1000, 60000);
    estimate();
    EXPECT_TRUE(untouched(clients_[0].ha[0], 60000));
    EXPECT_EQ(clients_[0].ha[1].num_bytes, 2800000U);
}

TEST_F(AckEstimate, GoesOnBehindAStreamWithoutPackets) {
    clients_[0].ha[0] = stream(0, 60000);
    clients_[0].ha[1] = stream(1000, 60000);
    estimate();
    EXPECT_TRUE(untouched(clients_[0].ha[0], 60000));
    EXPECT_EQ(clients_[0].ha[1].estimated, 1);
}

TEST_F(AckEstimate, UsesTheFirstHistoryOfThePort) {
    histories_[2] = histories_[3];
    histories_[2].rx_pkt_size = 100;
    clients_[0].ha[0] = stream(1000, 60000);
    estimate();
    EXPECT_EQ(clients_[0].ha[0].num_bytes, 200000U);
}

TEST_F(AckEstimate, UsesTheHistoryOfEachStreamsOwnPort) {
    histories_[4].rx_tx_factor = 1;
    histories_[4].rx_pkt_size = 300;
    clients_[0].ha[0] = stream(10, 600);
    clients_[0].ha[1] = stream(10, 600, 1004);
    estimate();
    EXPECT_EQ(clients_[0].ha[0].num_bytes, 28000U);
    EXPECT_EQ(clients_[0].ha[1].num_bytes, 3000U);
}

TEST_F(AckEstimate, StopsAtTheFirstEmptyStreamOfAClient) {
    clients_[0].ha[0] = stream(10, 600);
    clients_[0].ha[2] = stream(10, 600);
    clients_[1].ha[0] = stream(10, 600);
    estimate(2);
    EXPECT_EQ(clients_[0].ha[0].estimated, 1);
    EXPECT_TRUE(untouched(clients_[0].ha[2], 600));
    EXPECT_EQ(clients_[1].ha[0].estimated, 1);
}

TEST_F(AckEstimate, TakesAllTwentyStreamsOfEveryListedClientOnly) {
    for (kolt_client &client : clients_)
        std::fill(std::begin(client.ha), std::end(client.ha), stream(10, 600));
    estimate(1);
    for (const ha_entry &entry : clients_[0].ha)
        EXPECT_EQ(entry.num_bytes, 28000U);
    for (const ha_entry &entry : clients_[1].ha)
        EXPECT_TRUE(untouched(entry, 600));
}

TEST_F(AckEstimate, OfNoClientDoesNothing) {
    clients_[0].ha[0] = stream(10, 600);
    estimate(0);
    EXPECT_TRUE(untouched(clients_[0].ha[0], 600));
}

} // namespace
