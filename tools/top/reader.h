// Reading the node. Everything is asked of the probes that the daemon asks, and nothing is told to anybody.
#pragma once

#include "counters.h"
#include "records.h"

#include "core/handle.h"
#include "path_selection/decide/paths.h"
#include "probes/streams/ranking.h"

#include <cstdint>

// What was counted when a bridge's links were last looked at.
struct top_last_counters {
    uint32_t ifindex = 0;
    uint64_t rx_bytes = 0;
    uint64_t tx_bytes = 0;
    uint64_t at_us = 0;
};

// What the drivers told of a bridge's links when they were asked last.
struct top_measured {
    ps_path_table rows;
    bool abnormal[KOLT_LINK_COUNT] = {};
};

// What is kept from one reading to the next. It is large.
struct top_reader {
    config configuration;
    bool wants_streams = true;  // the tables of streams are read
    ps_history_table histories; // one sample a period of the daemon's, as it has them
    uint64_t next_sample_us = 0;
    uint64_t next_measuring_us = 0;
    top_measured measured[CONFIG_MAX_BRIDGES];
    top_last_counters last[CONFIG_MAX_BRIDGES][KOLT_LINK_COUNT];
    top_counter_table counters;
    kolt_stream_ranking ranking;
    kolt_client *clients[CONFIG_MAX_BRIDGES] = {}; // KOLT_MAX_CLIENTS records for each bridge that has been active
    top_node node;
};

// A reader in memory of its own, which takes none until it is used; null without any.
top_reader *top_make_reader();
void top_free_reader(top_reader *reader);
using top_reader_ptr = kolt_handle<top_reader, top_free_reader>;

// Loads the configuration. It ends the process, as in the daemon, where that is no use.
void top_load(top_reader *reader, const char *path);

// Reads the node as it is now into reader->node.
void top_read(top_reader *reader);
