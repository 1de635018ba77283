// Every state that a set of ports can come into, by any order of events, and what is wrong in it.
#pragma once

#include "model_ports/node.h"

#include <cstdint>
#include <span>
#include <string>

struct port_kind {
    kolt_link_type type;
    uint8_t class_;
    uint8_t relay;
};

// What a number below PORT_KINDS stands for.
constexpr uint32_t PORT_KINDS = KOLT_LINK_COUNT * 2 * 2;
port_kind kind_of(uint32_t number);

struct explored {
    uint64_t states = 0;
    uint64_t events = 0; // run, one after another from each state
    std::string wrong;   // the first thing, with the ports and the event that led to it
};

// Starts the module on these ports under every role and state of the links, and lets every event happen in every state
// that comes of it, until there are no new ones: so every order of events, of any number, has been run.
explored explore_ports(std::span<const port_kind> ports);
