#pragma once

#include <cstdint>

// What moving a stream to a path would take.
struct ps_quota_step {
    uint32_t rate = 0;  // of the stream, in units of 64 bytes a millisecond
    uint32_t quota = 0; // hundredths of a percent of the path
};

// The step of a stream of `num_bytes` in a period of `period` milliseconds on a path of PHY rate `path_rate`, in
// wrapping 32-bit arithmetic; a period or a rate of 0 gives a step of 0.
inline ps_quota_step ps_stream_quota(uint32_t num_bytes, uint32_t period, uint16_t path_rate) {
    ps_quota_step step;
    if (period == 0 || path_rate == 0)
        return step;
    step.rate = num_bytes / period >> 6;
    step.quota = step.rate * 10000U / path_rate;
    return step;
}
