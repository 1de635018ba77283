// What is known of a node after one reading, as records; everything that shows it works on them alone.
#pragma once

#include "core/config.h"
#include "core/interface_list.h"
#include "core/work_mode.h"
#include "notes.h"
#include "path_selection/decide/paths.h"
#include "probes/streams/client.h"
#include "probes/streams/client_index.h"
#include "words.h"

#include <cstdint>
#include <span>

// The traffic of an interface: the kernel's counters, and what they come to since the reading before.
struct top_traffic {
    bool counted = false;
    bool timed = false; // there was a reading before
    uint64_t rx_bytes = 0;
    uint64_t tx_bytes = 0;
    uint64_t rx_bit_rate = 0;
    uint64_t tx_bit_rate = 0;
};

// Entries of the stream table, and the bytes that they count.
struct top_streams {
    uint32_t count = 0;
    uint64_t bytes = 0;
};

// A backhaul link of a bridge, beside its row of the path table.
struct top_path {
    bool configured = false;         // the bridge has such a path port that belongs to this node's uplink
    bool up = false;                 // says the node's own daemon
    bool abnormal = false;           // its rates are too low to use it beside a healthy 2.4 GHz link
    char name[KOLT_NAME_SIZE + 1]{}; // the row's, or the port's where it is not measured
    uint32_t ifindex = 0;
    uint8_t priority = 0;
    uint32_t pinned = 0; // entries of the HD table
    top_streams streams;
    top_traffic traffic;
};

struct top_bridge {
    char name[KOLT_NAME_SIZE + 1] = {};
    bool active = false;           // the platform knows it
    bool avoids_loops = false;     // by the configuration
    bool selects_paths = false;    // likewise
    bool has_clients = false;      // the tables could be read
    bool has_streams = false;      // likewise
    bool overloaded = false;       // some path is above the high threshold
    bool full = false;             // and none has room
    bool cpu_overloaded = false;   // the processor is so busy that 2.4 GHz counts as full
    bool prefers_backhaul = false; // the preferred link can be used now
    uint32_t stream_entries = 0;
    uint32_t pinned_entries = 0;
    kolt_port_list ports;
    ps_path_table rows;
    top_path paths[KOLT_LINK_COUNT];
    kolt_client_list clients; // memory of the reader
    kolt_client_index client_numbers;
    top_streams loads[KOLT_MAX_LISTED_CLIENTS]; // by the client's number

    // Streams move when some path is hot and another has room, two periods in a row.
    [[nodiscard]] bool adjusts() const {
        return overloaded && !full;
    }
};

struct top_node {
    int64_t seconds = 0;  // wall clock
    uint32_t read_us = 0; // what the reading took
    kolt_work_mode mode = KOLT_MODE_UNKNOWN;
    const config *configuration = nullptr;
    uint32_t bridge_count = 0;
    top_bridge bridges[CONFIG_MAX_BRIDGES];
    top_notes notes;

    [[nodiscard]] std::span<const top_bridge> all_bridges() const {
        return {bridges, bridge_count};
    }
};

// The first client with this MAC and its bridge; null without one.
struct top_found {
    const top_bridge *bridge = nullptr;
    const kolt_client *client = nullptr;
};
top_found top_find_client(const top_node &node, const uint8_t *mac);

// The link of the bridge that has this kernel index; null for any other interface.
const top_path *top_path_of(const top_bridge &bridge, uint32_t ifindex);

// The configured port of the bridge with this kernel index; null without one.
const config_interface *top_port_of(const top_bridge &bridge, uint32_t ifindex);

// The name of a port of the bridge, or of another kernel interface; its number when it is gone.
top_name top_interface_name(const top_bridge &bridge, uint32_t ifindex);
