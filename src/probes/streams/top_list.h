// A client's list of its busiest streams while it is made.
#pragma once

#include "probes/streams/ha_table.h"

#include <cstdint>

constexpr uint8_t KOLT_MAX_STREAMS_OF_PORT = 10; // in one list

// Puts `stream` into a top list of `limit` slots, ordered by counter_b, the earlier stream first among equals; at most
// KOLT_MAX_STREAMS_OF_PORT streams of one port. The list borrows the streams.
void kolt_insert_top_stream(ha_table_entry **list, uint8_t limit, ha_table_entry *stream);
