// The bridge tables of a busy node: so many clients behind the busy uplink, all of them pinned to the best one, and so
// many streams between them and hosts far away, every second stream the answer to the one before.
#pragma once

#include "probes/bridge_tables.h"

#include <cstdint>
#include <vector>

struct period_tables {
    std::vector<fdb_entry> fdb;
    std::vector<hd_entry> hd;
    std::vector<ha_table_entry> ha;
};

// The streams come on the port `busy`, the clients are pinned to the port `best`.
period_tables make_tables(uint32_t clients, uint32_t streams, uint32_t busy, uint32_t best);

// Makes the tables those of a simulated bridge; ends the program when the node does not take them.
void write_tables(const char *bridge, const period_tables &tables);
