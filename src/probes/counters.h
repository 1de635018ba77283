// Traffic counters of interfaces.
#pragma once

#include <cstdint>

// One reading of an interface's counters, cumulative as the kernel keeps them.
struct kolt_if_stat {
    uint32_t seconds = 0; // wall clock
    uint64_t rx_bytes = 0;
    uint64_t rx_packets = 0;
    uint64_t tx_bytes = 0;
    uint64_t tx_packets = 0;
};

// Reads the counters of the first interface whose table line contains `ifname` with a colon behind it; 1, or 0 with
// `stat` untouched when there is none.
int kolt_get_if_stat(const char *ifname, kolt_if_stat *stat);
