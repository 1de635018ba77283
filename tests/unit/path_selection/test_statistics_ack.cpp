// Streams of acknowledgements are made to weigh as much as what they acknowledge.
#include "path_selection/measured_test.h"
#include "path_selection/statistics.h"

namespace {

using testing::IsEmpty;

constexpr uint32_t PORT = 30; // kernel index of the 5 GHz path

class AckEstimate : public MeasuredPaths {
protected:
    void SetUp() override {
        MeasuredPaths::SetUp();
        for (const kolt_link_type type : KOLT_LINKS)
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

TEST_F(AckEstimate, ThousandPacketsOf60000BytesAreEstimatedAt2800000Bytes) {
    clients_[0].ha[0] = stream(1000, 60000);
    estimate();
    EXPECT_EQ(clients_[0].ha[0].num_bytes, 2800000U);
    EXPECT_EQ(clients_[0].ha[0].num_pkts, 1000U);
    EXPECT_EQ(clients_[0].ha[0].estimated, 1);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(AckEstimate, EstimateWithoutATableDoesNothing) {
    clients_[0].ha[0] = stream(1000, 60000);
    kolt_client_list list{.count = 1, .clients = clients_.data()};
    path_selection_estimate_ack_streams(nullptr, &list);
    path_selection_estimate_ack_streams(&histories_, nullptr);
    EXPECT_TRUE(untouched(clients_[0].ha[0], 60000));
}

// ---- Which streams

TEST_F(AckEstimate, StreamOfAnUnknownPortIsLeftAndTheNextEstimated) {
    clients_[0].ha[0] = stream(1000, 60000, 99);
    clients_[0].ha[1] = stream(1000, 60000);
    estimate();
    EXPECT_TRUE(untouched(clients_[0].ha[0], 60000));
    EXPECT_EQ(clients_[0].ha[1].num_bytes, 2800000U);
}

TEST_F(AckEstimate, StreamBehindOneWithoutPacketsIsEstimated) {
    clients_[0].ha[0] = stream(0, 60000);
    clients_[0].ha[1] = stream(1000, 60000);
    estimate();
    EXPECT_TRUE(untouched(clients_[0].ha[0], 60000));
    EXPECT_EQ(clients_[0].ha[1].estimated, 1);
}

TEST_F(AckEstimate, FirstHistoryOfThePortIsUsed) {
    histories_[2] = histories_[3];
    histories_[2].rx_pkt_size = 100;
    clients_[0].ha[0] = stream(1000, 60000);
    estimate();
    EXPECT_EQ(clients_[0].ha[0].num_bytes, 200000U);
}

TEST_F(AckEstimate, HistoryOfEachStreamsOwnPortIsUsed) {
    histories_[4].rx_tx_factor = 1;
    histories_[4].rx_pkt_size = 300;
    clients_[0].ha[0] = stream(10, 600);
    clients_[0].ha[1] = stream(10, 600, 1004);
    estimate();
    EXPECT_EQ(clients_[0].ha[0].num_bytes, 28000U);
    EXPECT_EQ(clients_[0].ha[1].num_bytes, 3000U);
}

TEST_F(AckEstimate, EstimateStopsAtTheFirstEmptyStreamOfAClient) {
    clients_[0].ha[0] = stream(10, 600);
    clients_[0].ha[2] = stream(10, 600);
    clients_[1].ha[0] = stream(10, 600);
    estimate(2);
    EXPECT_EQ(clients_[0].ha[0].estimated, 1);
    EXPECT_TRUE(untouched(clients_[0].ha[2], 600));
    EXPECT_EQ(clients_[1].ha[0].estimated, 1);
}

TEST_F(AckEstimate, AllTwentyStreamsOfListedClientsOnlyAreEstimated) {
    for (kolt_client &client : clients_)
        std::fill(std::begin(client.ha), std::end(client.ha), stream(10, 600));
    estimate(1);
    for (const ha_entry &entry : clients_[0].ha)
        EXPECT_EQ(entry.num_bytes, 28000U);
    for (const ha_entry &entry : clients_[1].ha)
        EXPECT_TRUE(untouched(entry, 600));
}

TEST_F(AckEstimate, EstimateOfNoClientDoesNothing) {
    clients_[0].ha[0] = stream(10, 600);
    estimate(0);
    EXPECT_TRUE(untouched(clients_[0].ha[0], 600));
}

} // namespace
