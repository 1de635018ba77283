// Neighbour frames as bytes.
#include "decide/frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

constexpr uint8_t SOURCE[6] = {2, 0, 0, 0, 0, 7};

neighbour_frame full_hello() {
    neighbour_frame frame;
    frame.kind = FRAME_HELLO;
    frame.node = 0x0001020000000007;
    frame.port = 0x01020304;
    frame.sequence = 9;
    frame.incarnation = 0xa1a2a3a4;
    frame.version = 0xb1b2b3b4;
    frame.root = 0x0000020000000001;
    frame.parent = 0x020000000002;
    frame.taking = {0x11, 0x12};
    frame.hops = 3;
    frame.node_flags = NODE_BELOW_FROZEN;
    frame.link_flags = LINK_ALIVE | LINK_UPWARD;
    frame.join_count = FRAME_JOINS;
    for (uint8_t i = 0; i < FRAME_JOINS; i++)
        frame.joins[i] = {.kind = i % 2 ? JOIN_GRANT : JOIN_REQUEST, .origin = i + 100U, .token = ~uint64_t{i}};
    frame.stream_count = FRAME_STREAMS;
    for (uint8_t i = 0; i < FRAME_STREAMS; i++) {
        frame.streams[i] = {.src = {1, 2, 3, 4, 5, i},
                            .dst = {6, 5, 4, 3, 2, i},
                            .src_port = static_cast<uint16_t>(5000 + i),
                            .dst_port = 443,
                            .protocol = 6,
                            .type = 3};
    }
    return frame;
}

neighbour_frame short_frame(frame_kind kind) {
    neighbour_frame frame;
    frame.kind = kind;
    frame.node = 0x0001020000000007;
    frame.port = 12;
    frame.sequence = 34;
    frame.echoed_by = kind == FRAME_ECHO ? 0x0000020000000001 : 0;
    return frame;
}

std::vector<uint8_t> encoded(const neighbour_frame &frame) {
    std::vector<uint8_t> bytes(FRAME_MAX_SIZE);
    bytes.resize(frame_encode(frame, SOURCE, bytes));
    return bytes;
}

bool reads(const std::vector<uint8_t> &bytes) {
    neighbour_frame frame;
    return frame_decode(bytes, &frame);
}

TEST(Frame, WhatIsWrittenIsRead) {
    for (const neighbour_frame &frame : {full_hello(), short_frame(FRAME_PROBE), short_frame(FRAME_ECHO)}) {
        neighbour_frame read;
        ASSERT_TRUE(frame_decode(encoded(frame), &read)) << frame.kind;
        EXPECT_TRUE(read == frame) << frame.kind;
    }
}

TEST(Frame, LiesAtFixedPlaces) {
    const std::vector<uint8_t> hello = encoded(full_hello());
    EXPECT_EQ(hello.size(), FRAME_MAX_SIZE);
    const std::vector<uint8_t> head = {1,           0x80, 0xc2, 0, 0, 0x0e, 2, 0, 0, 0, 0, 7,  0x88, 0xb5, 1,
                                       FRAME_HELLO, 0,    1,    2, 0, 0,    0, 0, 7, 1, 2, 3,  4,    0,    0,
                                       0,           9,    0,    0, 0, 0,    0, 0, 0, 0, 2, 237}; // 37 + 8 * 17 + 32 *
                                                                                                 // 18 = 749
    EXPECT_TRUE(std::equal(head.begin(), head.end(), hello.begin())) << testing::PrintToString(hello);
    EXPECT_THAT(std::vector<uint8_t>(hello.begin() + 42, hello.begin() + 50),
                testing::ElementsAre(0xa1, 0xa2, 0xa3, 0xa4, 0xb1, 0xb2, 0xb3, 0xb4));
}

TEST(Frame, ProbeBecomesEchoByItsKindAndWhoAnswered) {
    std::vector<uint8_t> bytes = encoded(short_frame(FRAME_PROBE));
    EXPECT_EQ(bytes.size(), FRAME_MIN_SIZE);
    bytes[FRAME_KIND_OFFSET] = FRAME_ECHO;
    bytes[FRAME_ECHOED_BY_OFFSET + 2] = 2;
    bytes[FRAME_ECHOED_BY_OFFSET + 7] = 1;
    neighbour_frame read;
    ASSERT_TRUE(frame_decode(bytes, &read));
    EXPECT_TRUE(read == short_frame(FRAME_ECHO));
}

TEST(Frame, PaddingIsLeftAlone) {
    for (const neighbour_frame &frame : {full_hello(), short_frame(FRAME_PROBE)}) {
        std::vector<uint8_t> bytes = encoded(frame);
        bytes.resize(bytes.size() + 18, 0xff);
        neighbour_frame read;
        ASSERT_TRUE(frame_decode(bytes, &read));
        EXPECT_TRUE(read == frame);
    }
}

TEST(Frame, CutShortAnywhereIsNone) {
    for (const neighbour_frame &frame : {full_hello(), short_frame(FRAME_PROBE)}) {
        const std::vector<uint8_t> bytes = encoded(frame);
        for (size_t size = 0; size < bytes.size(); size++)
            ASSERT_FALSE(reads({bytes.begin(), bytes.begin() + static_cast<long>(size)})) << size;
    }
}

TEST(Frame, OfAnotherKindOrVersionIsNone) {
    struct row {
        const char *name;
        size_t offset;
        uint8_t byte;
    };
    const row rows[] = {
        {"destination", 5, 0x00},  {"ethertype", 13, 0xb6},      {"version", 14, 2},        {"kind 0", 15, 0},
        {"kind 4", 15, 4},         {"length", 41, 238},          {"joins", 77, 9},          {"fewer joins", 77, 7},
        {"streams", 78, 33},       {"fewer streams", 78, 31},    {"kind of a join", 79, 3}, {"kind of a join", 79, 0},
        {"long length", 40, 0xff}, {"last join", 79 + 7 * 17, 9}};
    for (const row &row : rows) {
        std::vector<uint8_t> bytes = encoded(full_hello());
        bytes[row.offset] = row.byte;
        EXPECT_FALSE(reads(bytes)) << row.name;
    }
}

TEST(Frame, ProbeWithABodyIsNone) {
    std::vector<uint8_t> bytes = encoded(short_frame(FRAME_PROBE));
    bytes[41] = 1;
    bytes.push_back(0);
    EXPECT_FALSE(reads(bytes));
}

TEST(Frame, IsNotWrittenWithoutRoomOrWithTooMuch) {
    std::vector<uint8_t> bytes(FRAME_MAX_SIZE - 1);
    neighbour_frame frame = full_hello();
    EXPECT_EQ(frame_encode(frame, SOURCE, bytes), 0U);
    frame.stream_count--;
    EXPECT_EQ(frame_encode(frame, SOURCE, bytes), FRAME_MAX_SIZE - FRAME_STREAM_SIZE);
    bytes.resize(2 * FRAME_MAX_SIZE);
    frame.stream_count = FRAME_STREAMS + 1;
    EXPECT_EQ(frame_encode(frame, SOURCE, bytes), 0U);
    frame.stream_count = 0;
    frame.join_count = FRAME_JOINS + 1;
    EXPECT_EQ(frame_encode(frame, SOURCE, bytes), 0U);
}

TEST(Frame, FitsIntoOneOfEthernet) {
    EXPECT_LE(FRAME_MAX_SIZE, 1514U);
}

} // namespace
