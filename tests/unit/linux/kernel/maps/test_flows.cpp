// Which frames belong to a stream, to which, and how much each counts for.
#include "linux/support/data_plane.h"

#include <cstring>

namespace {

// A FOLLOW port makes a stream of the other direction of whatever arrives that can be one.
class flow_test : public data_plane_test {
protected:
    flow_test() {
        open_port(one_, KOLT_PORT_FOLLOW);
    }

    // Whether the frame made a stream. It passes in any case.
    bool makes_stream(const std::string &frame) {
        (void)streams_.remove_all(0);
        EXPECT_EQ(PASSED, arrive(frame, one_));
        return streams_.count() != 0;
    }
};

uint16_t big_endian(uint16_t value) {
    return static_cast<uint16_t>(value >> 8 | value << 8);
}

TEST_F(flow_test, AStreamHasTheAddressesAndPortsOfTheOtherDirection) {
    ASSERT_TRUE(makes_stream(ip_frame{}.bytes()));
    const kolt_stream_key key = only_stream().key;
    EXPECT_EQ(0, memcmp(key.src, CLIENT.data(), 6));
    EXPECT_EQ(0, memcmp(key.dst, SERVER.data(), 6));
    EXPECT_EQ(big_endian(80), key.src_port);
    EXPECT_EQ(big_endian(5000), key.dst_port);
    EXPECT_EQ(KOLT_STREAM_UDP, key.kind);
}

TEST_F(flow_test, TheOtherDirectionLeavesAsThatStream) {
    for (const uint8_t version : {uint8_t{4}, uint8_t{6}})
        for (const uint8_t protocol : {uint8_t{6}, uint8_t{17}}) {
            const ip_frame frame{.version = version, .protocol = protocol};
            ASSERT_TRUE(makes_stream(frame.bytes()));
            EXPECT_EQ(PASSED, leave(frame.answer().bytes(), one_));
            const kolt_stream_record record = only_stream();
            EXPECT_EQ(1U, record.tx_packets) << int{version} << " " << int{protocol};
            EXPECT_EQ(1U, record.rx_packets) << int{version} << " " << int{protocol};
            EXPECT_EQ(protocol == 17 ? KOLT_STREAM_UDP : KOLT_STREAM_TCP, record.key.kind);
        }
}

TEST_F(flow_test, WhatDiffersInAnythingIsAnotherStream) {
    const ip_frame frames[] = {
        {},
        {.to = {0x02, 0, 0, 0, 0, 0xc2}},
        {.to = {0x04, 0, 0, 0, 0, 0xc1}},
        {.from = {0x06, 0x12, 0x34, 0x56, 0x78, 0x9b}},
        {.from = {0x02, 0x12, 0x34, 0x56, 0x78, 0x9a}},
        {.protocol = 6},
        {.src_port = 5001},
        {.dst_port = 81},
        {.src_port = 80, .dst_port = 5000},
        {.src_host = 3},
        {.dst_host = 4},
    };
    for (const ip_frame &frame : frames)
        EXPECT_EQ(PASSED, arrive(frame.bytes(), one_));
    EXPECT_EQ(std::size(frames), streams_.count());
    for (const ip_frame &frame : frames)
        EXPECT_EQ(PASSED, arrive(frame.bytes(), one_));
    EXPECT_EQ(std::size(frames), streams_.count());
}

struct odd_case {
    const char *name;
    uint8_t version;
    uint8_t protocol;
    size_t offset;
    uint8_t value;
    bool stream;
};

TEST_F(flow_test, WhatIsNotPlainTcpOrUdpBelongsToNone) {
    const odd_case cases[] = {
        {"plain UDP", 4, 17, 22, 64, true},
        {"plain TCP", 4, 6, 22, 64, true},
        {"plain UDP over IPv6", 6, 17, 21, 64, true},
        {"may not be fragmented", 4, 17, 20, 0x40, true},
        {"ICMP", 4, 17, 23, 1, false},
        {"no header at all", 4, 17, 23, 0, false},
        {"options", 4, 17, 14, 0x46, false},
        {"header shorter than a header", 4, 17, 14, 0x44, false},
        {"version 5", 4, 17, 14, 0x55, false},
        {"first fragment", 4, 17, 20, 0x20, false},
        {"later fragment", 4, 17, 21, 0x01, false},
        {"far fragment", 4, 17, 20, 0x10, false},
        {"fragment of IPv6", 6, 17, 20, 44, false},
        {"hop by hop options", 6, 17, 20, 0, false},
        {"ICMPv6", 6, 17, 20, 58, false},
        {"IPv4 as IPv6", 6, 17, 14, 0x45, false},
        {"one byte longer than the frame", 4, 17, 17, 47, false},
        {"much longer than the frame", 4, 17, 16, 0xff, false},
        {"too short for UDP", 4, 17, 17, 27, false},
        {"just long enough for UDP", 4, 17, 17, 28, true},
        {"length 0", 4, 17, 17, 0, false},
        {"too short for TCP", 4, 6, 17, 39, false},
        {"just long enough for TCP", 4, 6, 17, 40, true},
        {"IPv6, one byte longer than the frame", 6, 17, 19, 27, false},
        {"IPv6, too short for UDP", 6, 17, 19, 7, false},
        {"IPv6, length 0", 6, 17, 19, 0, false},
        {"other ethertype", 4, 17, 12, 0x88, false},
        {"length in place of an ethertype", 4, 17, 12, 0x00, false},
    };
    for (const odd_case &row : cases) {
        const ip_frame frame{.version = row.version, .protocol = row.protocol};
        EXPECT_EQ(row.stream, makes_stream(with_byte(frame.bytes(), row.offset, row.value))) << row.name;
    }
}

TEST_F(flow_test, ATagHidesTheStream) {
    const std::string plain = ip_frame{}.bytes();
    EXPECT_FALSE(makes_stream(plain.substr(0, 12) + std::string("\x81\x00\x00\x05", 4) + plain.substr(12)));
    EXPECT_FALSE(makes_stream(plain.substr(0, 12) + std::string("\x88\x64\x11\x00\x00\x01\x00\x30\x00\x21", 10) +
                              plain.substr(14)));
}

TEST_F(flow_test, PaddingBehindTheFrameDoesNotMatter) {
    EXPECT_TRUE(makes_stream(ip_frame{.payload = 1}.bytes() + std::string(17, '\0')));
}

TEST_F(flow_test, AFrameCountsForItselfAsTheInterfaceCountsIt) {
    for (const size_t payload : {size_t{0}, size_t{18}, size_t{1472}}) {
        const std::string frame = ip_frame{.payload = payload}.bytes();
        ASSERT_TRUE(makes_stream(frame));
        const kolt_stream_record record = only_stream();
        EXPECT_EQ(1U, record.rx_packets);
        EXPECT_EQ(frame.size(), record.rx_bytes);
    }
}

// Three segments of 1,448, 1,448 and 104 bytes under headers of 54 bytes: 3,162 bytes on a wire.
TEST_F(flow_test, SegmentsAreCountedWithTheirHeaders) {
    const std::string tcp = ip_frame{.protocol = 6, .payload = 3000}.bytes();
    EXPECT_EQ(PASSED, run(kolt_direction::INGRESS, tcp, one_, 0, {.count = 3, .size = 1448}).what);
    const kolt_stream_record record = only_stream();
    EXPECT_EQ(3U, record.rx_packets);
    EXPECT_EQ(3162U, record.rx_bytes);
}

TEST_F(flow_test, SegmentsOfTcpWithOptionsCarryThemEach) {
    // The header says 32 bytes, so 2,988 are left to carry: three segments, and two more headers of 66 bytes.
    const std::string tcp = with_byte(ip_frame{.protocol = 6, .payload = 3000}.bytes(), 46, 0x80);
    EXPECT_EQ(PASSED, run(kolt_direction::INGRESS, tcp, one_, 0, {.count = 3, .size = 1448}).what);
    const kolt_stream_record record = only_stream();
    EXPECT_EQ(3U, record.rx_packets);
    EXPECT_EQ(3054U + 2 * 66, record.rx_bytes);
}

TEST_F(flow_test, SegmentsOfUdpAreCountedToo) {
    const std::string udp = ip_frame{.version = 6, .protocol = 17, .payload = 2500}.bytes();
    EXPECT_EQ(PASSED, run(kolt_direction::INGRESS, udp, one_, 0, {.count = 3, .size = 1000}).what);
    const kolt_stream_record record = only_stream();
    EXPECT_EQ(3U, record.rx_packets);
    EXPECT_EQ(2562U + 2 * 62, record.rx_bytes);
}

TEST_F(flow_test, ALieAboutTheHeadersOfSegmentsIsNotMultiplied) {
    const std::string tcp = with_byte(ip_frame{.protocol = 6, .payload = 4}.bytes(), 46, 0xf0);
    EXPECT_EQ(PASSED, run(kolt_direction::INGRESS, tcp, one_, 0, {.count = 60, .size = 1}).what);
    const kolt_stream_record record = only_stream();
    EXPECT_EQ(1U, record.rx_packets);
    EXPECT_EQ(tcp.size(), record.rx_bytes);
}

} // namespace
