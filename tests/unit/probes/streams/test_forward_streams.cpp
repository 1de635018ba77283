// Finding the forward stream that a reverse stream answers.
#include "stream_test.h"

#include "probes/streams/forward_streams.h"

namespace {

class ForwardStreams : public testing::Test {
protected:
    ha_table_entry *add(const mac_address &far, uint16_t far_port, uint16_t near_port) {
        streams_.push_back(table_entry({.src = far, .src_port = far_port, .dst_port = near_port}));
        pointers_.push_back(&streams_.back());
        return pointers_.back();
    }

    // The stream that one to the far end, between these ports, answers.
    ha_table_entry *answered(const mac_address &far, uint16_t far_port, uint16_t near_port) {
        EXPECT_TRUE(index_.assign(pointers_));
        return index_.answered_by(table_entry({.dst = far, .src_port = near_port, .dst_port = far_port}));
    }

    kolt_forward_streams index_;
    std::vector<ha_table_entry *> pointers_;

private:
    std::deque<ha_table_entry> streams_;
};

TEST_F(ForwardStreams, AnsweredStreamHasTheSameFarEndAndPortsSwapped) {
    ha_table_entry *stream = add(numbered_mac(1), 80, 5000);
    EXPECT_EQ(answered(numbered_mac(1), 80, 5000), stream);
    EXPECT_EQ(answered(numbered_mac(2), 80, 5000), nullptr);
    EXPECT_EQ(answered(numbered_mac(1), 81, 5000), nullptr);
    EXPECT_EQ(answered(numbered_mac(1), 80, 5001), nullptr);
    EXPECT_EQ(answered(numbered_mac(1), 5000, 80), nullptr);
}

TEST_F(ForwardStreams, FirstOfTwoStreamsWithTheSameEndsIsAnswered) {
    const ha_table_entry *first = add(numbered_mac(1), 80, 5000);
    add(numbered_mac(1), 80, 5000);
    EXPECT_EQ(answered(numbered_mac(1), 80, 5000), first);
}

TEST_F(ForwardStreams, NothingIsAnsweredWithoutStreams) {
    EXPECT_EQ(answered(numbered_mac(1), 80, 5000), nullptr);
}

TEST_F(ForwardStreams, EveryStreamOfManyIsFound) {
    for (uint16_t i = 0; i < 1000; i++)
        add(numbered_mac(i % 10), 443, static_cast<uint16_t>(1024 + i));
    ASSERT_TRUE(index_.assign(pointers_));
    for (uint16_t i = 0; i < 1000; i++) {
        const ha_table_entry reverse =
            table_entry({.dst = numbered_mac(i % 10), .src_port = static_cast<uint16_t>(1024 + i), .dst_port = 443});
        ASSERT_EQ(index_.answered_by(reverse), pointers_[i]) << i;
    }
}

TEST_F(ForwardStreams, AssigningAgainForgetsTheStreamsBefore) {
    add(numbered_mac(1), 80, 5000);
    EXPECT_NE(answered(numbered_mac(1), 80, 5000), nullptr);
    pointers_.clear();
    ha_table_entry *stream = add(numbered_mac(1), 81, 5000);
    EXPECT_EQ(answered(numbered_mac(1), 80, 5000), nullptr);
    EXPECT_EQ(answered(numbered_mac(1), 81, 5000), stream);
}

} // namespace
