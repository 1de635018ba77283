// One period over all bridges.
#pragma once

#include "core/config.h"
#include "probes/streams/client.h"
#include "probes/streams/ranking.h"

#include <cstdint>

// What a period works in, kept by the module for its memory.
struct ps_workspace {
    kolt_client *clients = nullptr; // KOLT_MAX_CLIENTS records, all zero but the first `used_clients`
    uint8_t used_clients = 0;
    kolt_stream_ranking ranking;
};

// Visits every bridge once.
void path_selection_run_period(config *config, ps_workspace *workspace);
