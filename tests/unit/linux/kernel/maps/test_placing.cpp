// Making streams and sending them by the port that they point to.
#include "linux/support/data_plane.h"

#include <bpf/bpf.h>

namespace {

const std::string DOWN = ip_frame{}.bytes();
const std::string UP = ip_frame{}.answer().bytes();

class placing_test : public data_plane_test {
protected:
    // Two links to one neighbour, and the client behind it.
    void make_bundle(uint8_t flags, uint16_t other_group = 1) {
        open_port(one_, flags, 1);
        open_port(two_, flags, other_group);
        ASSERT_TRUE(programs_.hd_set(CLIENT.data(), one_));
    }
    void point_to(uint32_t port) {
        streams_.repoint(only_stream().slot, port);
    }
};

TEST_F(placing_test, AStreamToAClientOfTheTableGetsAnEntryAtThePortItLeavesBy) {
    make_bundle(KOLT_PORT_NEED_HA);
    EXPECT_EQ(PASSED, leave(DOWN, two_));
    const kolt_stream_record record = only_stream();
    EXPECT_EQ(two_, record.target);
    EXPECT_EQ(1U, record.tx_packets);
    EXPECT_EQ(DOWN.size(), record.tx_bytes);
    EXPECT_EQ(0U, record.rx_packets);
}

TEST_F(placing_test, AStreamToAnybodyElseGetsNone) {
    make_bundle(KOLT_PORT_NEED_HA);
    EXPECT_EQ(PASSED, leave(UP, one_));
    EXPECT_EQ(0U, streams_.count());
}

TEST_F(placing_test, APortThatNeedsNoneMakesNone) {
    make_bundle(KOLT_PORT_FOLLOW);
    EXPECT_EQ(PASSED, leave(DOWN, one_));
    EXPECT_EQ(0U, streams_.count());
}

TEST_F(placing_test, AGroupFrameMakesNone) {
    make_bundle(KOLT_PORT_NEED_HA);
    ASSERT_TRUE(programs_.hd_set(BROADCAST.data(), one_));
    EXPECT_EQ(PASSED, leave(ip_frame{.to = BROADCAST}.bytes(), one_));
    EXPECT_EQ(0U, streams_.count());
}

TEST_F(placing_test, ARepointedStreamIsSentThereAndCountedThereOnce) {
    make_bundle(KOLT_PORT_NEED_HA);
    EXPECT_EQ(PASSED, leave(DOWN, one_));
    point_to(two_);
    EXPECT_EQ(REDIRECTED, leave(DOWN, one_));
    EXPECT_EQ(0U, only_stream().tx_packets);
    EXPECT_EQ(PASSED, leave(DOWN, two_));
    EXPECT_EQ(1U, only_stream().tx_packets);
}

TEST_F(placing_test, AStreamStaysWhereItIsWhenItsTargetIsOfNoUse) {
    make_bundle(KOLT_PORT_NEED_HA);
    EXPECT_EQ(PASSED, leave(DOWN, one_));
    struct {
        const char *name;
        uint32_t target;
        kolt_port word;
    } const cases[] = {
        {"closed", two_, {.group = 1, .flags = KOLT_PORT_NEED_HA}},
        {"another group", two_, {.group = 2, .flags = KOLT_PORT_OPEN | KOLT_PORT_NEED_HA}},
        {"no group", two_, {.flags = KOLT_PORT_OPEN | KOLT_PORT_NEED_HA}},
        {"beyond the table", KOLT_MAX_PORTS, {}},
        {"no port", 0, {}},
    };
    for (const auto &row : cases) {
        programs_.set_port(two_, row.word);
        point_to(row.target);
        EXPECT_EQ(PASSED, leave(DOWN, one_)) << row.name;
        EXPECT_EQ(1U, only_stream().tx_packets) << row.name;
    }
}

TEST_F(placing_test, PortsWithoutAGroupDoNotExchangeStreams) {
    open_port(one_, KOLT_PORT_NEED_HA);
    open_port(two_, KOLT_PORT_NEED_HA);
    ASSERT_TRUE(programs_.hd_set(CLIENT.data(), one_));
    EXPECT_EQ(PASSED, leave(DOWN, one_));
    point_to(two_);
    EXPECT_EQ(PASSED, leave(DOWN, one_));
}

TEST_F(placing_test, APortWithoutEitherFlagOnlyCounts) {
    make_bundle(KOLT_PORT_NEED_HA);
    EXPECT_EQ(PASSED, leave(DOWN, one_));
    point_to(two_);
    open_port(one_, 0, 1);
    EXPECT_EQ(PASSED, leave(DOWN, one_));
    EXPECT_EQ(1U, only_stream().tx_packets);
}

TEST_F(placing_test, TheOtherDirectionIsCountedAndMovesNothing) {
    make_bundle(KOLT_PORT_NEED_HA);
    EXPECT_EQ(PASSED, leave(DOWN, one_));
    EXPECT_EQ(PASSED, arrive(UP, two_));
    const kolt_stream_record record = only_stream();
    EXPECT_EQ(one_, record.target);
    EXPECT_EQ(1U, record.rx_packets);
    EXPECT_EQ(UP.size(), record.rx_bytes);
}

TEST_F(placing_test, AFollowedStreamLeavesWhereItsOtherDirectionArrived) {
    make_bundle(KOLT_PORT_FOLLOW);
    EXPECT_EQ(PASSED, arrive(UP, two_));
    EXPECT_EQ(two_, only_stream().target);
    EXPECT_EQ(REDIRECTED, leave(DOWN, one_));
    EXPECT_EQ(PASSED, arrive(UP, one_));
    EXPECT_EQ(one_, only_stream().target);
    EXPECT_EQ(PASSED, leave(DOWN, one_));
}

TEST_F(placing_test, AClosedPortCountsNothing) {
    make_bundle(KOLT_PORT_NEED_HA);
    EXPECT_EQ(PASSED, leave(DOWN, one_));
    (void)only_stream();
    programs_.set_port(one_, {.group = 1, .flags = KOLT_PORT_NEED_HA});
    EXPECT_EQ(DROPPED, leave(DOWN, one_));
    EXPECT_EQ(DROPPED, arrive(UP, one_));
    EXPECT_EQ(0U, only_stream().tx_packets);
    EXPECT_EQ(0U, only_stream().rx_packets);
}

TEST_F(placing_test, AStreamWithoutAFreeSlotLeavesAsBefore) {
    uint32_t slot = 0;
    for (uint32_t taken = 1; taken < KOLT_MAX_STREAMS; taken++)
        ASSERT_EQ(0, bpf_map_lookup_and_delete_elem(programs_.map(KOLT_MAP_FREE_SLOTS), nullptr, &slot));
    make_bundle(KOLT_PORT_NEED_HA | KOLT_PORT_FOLLOW);
    EXPECT_EQ(PASSED, leave(DOWN, one_));
    EXPECT_EQ(PASSED, leave(ip_frame{.dst_port = 9}.bytes(), one_));
    EXPECT_EQ(PASSED, arrive(ip_frame{.dst_port = 9}.answer().bytes(), one_));
    EXPECT_EQ(1U, streams_.count());
}

} // namespace
