// The links of one bridge.
#pragma once

#include "reader.h"

// When a reading is, and what it does then.
struct top_moment {
    uint64_t now_us;
    bool measured; // the drivers are asked
    bool sampled;  // and what they say is kept as a sample
};

// Measures the links of the bridge with this number as a period does, and counts their traffic.
void top_read_paths(top_reader *reader, uint32_t number, top_moment moment);
