// The traffic of a path in a period, and streams that only acknowledge it.
#pragma once

#include "path_selection/decide/paths.h"
#include "probes/streams/client.h"

#include <cstdint>
#include <span>

// The traffic of one period, in wrapping 32-bit numbers.
struct ps_traffic {
    uint32_t rx_bytes = 0;
    uint32_t rx_packets = 0;
    uint32_t tx_bytes = 0;
    uint32_t tx_packets = 0;
};

// What the kernel counted between two readings, at least one packet in each direction.
ps_traffic ps_kernel_traffic(const kolt_if_stat &previous, const kolt_if_stat &current);

// Takes a period's traffic into the history of its path.
void ps_take_traffic(ps_path_history *history, const ps_traffic &moved);

// Makes a client's streams of small packets weigh as much as the traffic that they acknowledge.
void ps_estimate_acknowledgements(const ps_history_table &histories, std::span<ha_entry> streams);
