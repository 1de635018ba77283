// Which cases are run: all of a topology's, as far as they can be counted, and a sample of the rest with fixed seeds.
#pragma once

#include "model_mesh/explore.h"

#include <cstdint>
#include <functional>
#include <vector>

// How much is tried. All orders of two events that the gaps allow are always tried; the frames are what there is more
// of.
struct effort {
    std::vector<uint64_t> gaps_ms;  // between two events
    std::vector<uint64_t> later_ms; // until a kolt-bridged that has died is started again
    uint32_t seeds_single = 0;      // for each single event: random orders of the frames in flight
    uint32_t seeds_pair = 0;        // for each pair
    uint32_t late_frames = 0;       // for each single event: each of so many frames late or lost, one at a time
    uint32_t latency_patterns =
        0;                    // for each single event: links that are fast and slow, all patterns if there are fewer
    uint32_t races = 0;       // for each two losses shortly after one another: links that are fast and slow
    uint32_t starts = 0;      // random beginnings
    uint32_t every = 1;       // of the pairs only each so manieth is run
    uint32_t every_queue = 1; // and of those of a full queue and what becomes of the same link
};

effort short_effort();
effort long_effort();

// Hands out the cases, in an order that never changes.
void plan_cases(const topology &where, bool reversed, const effort &how, const std::function<void(mesh_case)> &each);
