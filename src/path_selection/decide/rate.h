// The rate of a path, from samples that jump.
#pragma once

#include "path_selection/decide/paths.h"

#include <cstdint>

// The PHY rates of a path's two directions.
struct ps_rates {
    uint16_t tx = 0;
    uint16_t rx = 0;
};

struct ps_processed_rate {
    uint16_t rate = 0;                // 0 without a sample
    uint16_t sorted[PS_SAMPLES] = {}; // the samples that it was taken from, in descending order
};

// Adds one pair of rates to a path's samples and returns the processed rate: the value one third of the way down the
// sorted samples, which a few bad ones do not move.
ps_processed_rate ps_add_rate_sample(ps_path_history *history, const ps_rates &rates);

// Whether both directions reach the rate below which a link is taken for broken.
[[nodiscard]] inline bool ps_is_healthy(const ps_rates &rates, uint16_t threshold) {
    return rates.tx >= threshold && rates.rx >= threshold;
}
