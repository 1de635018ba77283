// The entries of the HA table as the bridge library lays them out. They are read where the library put them, which
// promises no alignment; hence the packed record.
#pragma once

#include "core/names.h"

#include <cstddef>
#include <cstdint>

enum ha_flag : uint8_t {
    HA_MERGEABLE = 0x10, // may be added to its forward stream as the reverse direction
    HA_UNRANKED = 0x20,  // is never ranked
};

constexpr uint16_t HA_STREAM_UDP = 1; // any other stream kind is TCP

// One stream. What the counters count is the bridge library's business; this program ranks by counter_b.
struct [[gnu::packed]] ha_table_entry {
    uint16_t hash;
    uint8_t src_addr[KOLT_MAC_SIZE];
    uint8_t dst_addr[KOLT_MAC_SIZE];
    uint8_t unused_14[6];
    uint16_t src_port;
    uint16_t dst_port;
    uint16_t stream_kind;
    uint8_t unused_26[2];
    uint32_t port; // kernel interface index
    uint8_t unused_32[28];
    uint32_t counter_a;
    uint32_t counter_b;
    uint32_t counter_c1;
    uint32_t counter_c2;
    uint32_t reverse_counter_a; // filled by this program, in its own copy of the table
    uint32_t reverse_counter_b;
    uint32_t carried_value;
    uint8_t flags;
    uint8_t unused_89[11];
};
static_assert(sizeof(ha_table_entry) == 100);
static_assert(offsetof(ha_table_entry, src_port) == 20);
static_assert(offsetof(ha_table_entry, stream_kind) == 24);
static_assert(offsetof(ha_table_entry, port) == 28);
static_assert(offsetof(ha_table_entry, counter_a) == 60);
static_assert(offsetof(ha_table_entry, carried_value) == 84);
static_assert(offsetof(ha_table_entry, flags) == 88);
