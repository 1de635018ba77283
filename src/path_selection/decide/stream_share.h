// What share of a path a stream would take.
#pragma once

#include "probes/streams/client.h"

#include <cstdint>
#include <span>

struct ps_quota_step {
    uint32_t rate = 0;  // of the stream, in units of 64 bytes a millisecond
    uint32_t quota = 0; // hundredths of a percent of the path
};

// The step of a stream of `num_bytes` in a period of `period` milliseconds on a path of PHY rate `path_rate`, in
// wrapping 32-bit arithmetic; a period or a rate of 0 gives a step of 0.
ps_quota_step ps_stream_quota(uint32_t num_bytes, uint32_t period, uint16_t path_rate);

// How many of a client's streams a path can take: those that are not on it already (interface index `target`) in
// ranking order, until `budget` hundredths of a percent are spent.
uint8_t ps_count_fitting_streams(std::span<const ha_entry> streams, uint32_t target, int64_t budget, uint32_t period,
                                 uint16_t path_rate);
