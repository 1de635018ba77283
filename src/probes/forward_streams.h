// The forward streams of one client by their ends, to find the one that a reverse stream answers.
#pragma once

#include "probes/bridge_tables.h"

#include <cstdint>

// Indexes the streams; false without memory. Of several with the same ends the first counts. The index borrows them
// until the next one is made.
[[nodiscard]] bool kolt_index_forward_streams(ha_table_entry *const *streams, uint32_t count);

// The first indexed stream whose other end and ports are those of `reverse`, swapped; null when there is none.
ha_table_entry *kolt_find_forward_stream(const ha_table_entry &reverse);
