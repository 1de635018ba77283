// A node that answers the loop avoidance module from records: which ports its bridge has, what its files and options
// say, and what the bridge was told of each port.
#pragma once

#include "core/config.h"
#include "core/work_mode.h"

#include <array>
#include <cstdint>

constexpr uint8_t NODE_MAX_PORTS = 6;
constexpr uint8_t NOT_TOLD = 255;

// What the node's management says of its role. Ethernet that carries backhaul traffic makes ports nonrelay on an
// extender alone: all of its Ethernet ports, or the first.
struct node_role {
    const char *name;
    kolt_work_mode mode;
    bool plc_root = false;
    bool traffic = false;
    bool traffic_on_first = false;
};

struct told_port {
    uint8_t broadcast = NOT_TOLD;
    uint8_t group = NOT_TOLD;
};

struct model_node {
    config settings;
    uint8_t ports = 0; // the first so many interfaces of the settings are the bridge's
    node_role role{};
    uint8_t links_up = 0; // a bit for each link type
    std::array<told_port, NODE_MAX_PORTS> told;
    uint64_t calls = 0; // of the bridge's library
};

// The one that answers.
extern model_node node;
