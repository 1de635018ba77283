// What kolt-bridged tells the rest of the node about its links: small files that kolt reads, and events on the bus.
#pragma once

#include "core/link_type.h"
#include "core/names.h"
#include "core/work_mode.h"

#include <cstdint>

struct link_report {
    bool up = false;           // a link of this type leads to the parent and is alive
    bool to_root = false;      // and the parent is the root
    uint8_t neighbour[6] = {}; // the parent's MAC
};

struct node_report {
    kolt_work_mode mode = KOLT_MODE_UNKNOWN;
    uint8_t root[6] = {};
    uint8_t parent[6] = {}; // all zero without a parent
    link_report links[KOLT_LINK_COUNT];
    bool root_has_plc = false;                 // a power-line link reaches the root
    char ethernet_uplink[KOLT_NAME_SIZE] = {}; // the Ethernet port that leads to the parent, or empty
    uint32_t ethernet_neighbours = 0;          // bit i: Ethernet port i of the node has a neighbour
};
