// The platform libraries and the kernel's names of interfaces, as a target tells them to answer.
#pragma once

#include "core/config.h"
#include "support/input.h"

// What a bridge says of one of its tables.
struct platform_table {
    bool fails = false;  // whatever there is room for
    uint32_t count = 0;  // entries that it says it has
    uint32_t second = 0; // and the next time, unless that is 0
    bytes entries;       // of which as many are delivered as there is room for
};

struct platform_answers {
    bool active = true;        // the bridges are
    bool ports_fail = false;   // asking a bridge for its ports
    uint32_t ports_length = 0; // of the answer, as it says
    bytes ports;
    platform_table ha;
    platform_table hd;
    platform_table fdb;
    bytes ethernets; // names of 16 bytes each
    int ethernet_count = 0;
    int setting = 0; // the result of what sets something
};
extern platform_answers platform;

// What was asked for, since platform_reset.
struct platform_journal {
    int settings = 0;
    int ha_flushes = 0;
    int hd_flushes = 0;
    int hd_entries = 0;
    int ha_entries = 0;
};
extern platform_journal journal;

// The interfaces that the kernel has, by index from 1; the last one is no port of a bridge.
constexpr uint32_t PLATFORM_INTERFACES = 12;

// Every bridge is active again and has no tables; its ports are all interfaces but the last.
void platform_reset();

// A configuration with two bridges and ports of every type, role and class. It stays the caller's to change.
void platform_configure(config *record);
