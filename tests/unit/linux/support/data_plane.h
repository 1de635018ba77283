// The programs in the kernel for a test: loaded, with pins of its own, and run on frames that need no wire.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "kernel/programs.h"
#include "kernel/streams.h"
#include "linux/support/frames.h"
#include "linux/support/wires.h"

constexpr char PINS[] = "/tmp/pins";

enum action : int { PASSED = -1, DROPPED = 2, REDIRECTED = 7 };

struct outcome {
    action what;
    std::string frame;
};

// What the kernel carries as one frame for several.
struct segments {
    uint32_t count = 0;
    uint32_t size = 0;
};

class data_plane_test : public testing::Test {
protected:
    // Makes two unconnected ports, ONE and TWO, whose words are 0.
    data_plane_test();

    [[nodiscard]] outcome run(kolt_direction direction, const std::string &frame, uint32_t port, uint32_t came_by = 0,
                              segments whole = {}) const;
    [[nodiscard]] action arrive(const std::string &frame, uint32_t port) const {
        return run(kolt_direction::INGRESS, frame, port).what;
    }
    [[nodiscard]] action leave(const std::string &frame, uint32_t port, uint32_t came_by = 0) const {
        return run(kolt_direction::EGRESS, frame, port, came_by).what;
    }
    void open_port(uint32_t port, uint8_t more_flags = 0, uint16_t group = 0);
    // The only stream that there is, with what it has carried until now.
    [[nodiscard]] kolt_stream_record only_stream();

    kolt_programs programs_;
    kolt_streams streams_;
    kolt_reason why_;
    uint32_t one_ = 0;
    uint32_t two_ = 0;
};
