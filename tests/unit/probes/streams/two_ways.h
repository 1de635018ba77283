// The hosts of the stream tests, and a stream between two of them in both directions.
#pragma once

#include "stream_test.h"

constexpr mac_address CLIENT{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr mac_address PEER{0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
constexpr mac_address STRANGER{0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F};

constexpr uint8_t MERGEABLE = 0x10; // is the other direction of a stream

inline stream_fields forward() {
    return {
        .src = PEER, .dst = CLIENT, .port = 10, .counter_a = 30, .counter_b = 4000, .src_port = 80, .dst_port = 5000};
}

inline stream_fields reverse() {
    return {.src = CLIENT,
            .dst = PEER,
            .port = 20,
            .counter_a = 7,
            .counter_b = 500,
            .src_port = 5000,
            .dst_port = 80,
            .flags = MERGEABLE};
}
