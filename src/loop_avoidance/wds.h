// What is left behind when a station moves from one node of the mesh to another.
#pragma once

#include "core/config.h"

#include <cstdint>

constexpr uint32_t LOOP_AVOIDANCE_STATION_EVENT_SIZE = 13; // bytes of a station event that are read

// Cleans up WDS leftovers of the station that a bridge event is about. `payload` holds at least
// LOOP_AVOIDANCE_STATION_EVENT_SIZE bytes, or is null.
void loop_avoidance_delete_wds_entry(config *config, const uint8_t *payload);
