// The traffic counters of all interfaces in one reading.
#pragma once

#include <cstddef>
#include <cstdint>

struct top_counters {
    uint64_t rx_bytes = 0;
    uint64_t rx_packets = 0;
    uint64_t tx_bytes = 0;
    uint64_t tx_packets = 0;
};

// The kernel's table of interfaces as it was when it was read.
struct top_counter_table {
    static constexpr size_t ROOM = 65536; // some hundreds of interfaces; those behind them count as unknown

    char text[ROOM] = {};

    // Reads the table; empty when there is none.
    void read();

    // Finds the interface by its whole name; false when it is not in the table.
    bool find(const char *name, top_counters *counters) const;
};
