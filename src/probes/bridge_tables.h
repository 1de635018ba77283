// The three tables that the kernel bridge keeps: forwarding (FDB), high data rate (HD) and hash (HA). Their entries are
// read where the bridge library put them, which promises no alignment; hence the packed records.
#pragma once

#include "core/config.h"
#include "core/names.h"

#include <cstddef>
#include <cstdint>

enum kolt_table_kind : uint32_t { KOLT_TABLE_HA = 0, KOLT_TABLE_HD = 1, KOLT_TABLE_FDB = 2 };

// One learnt MAC.
struct [[gnu::packed]] fdb_entry {
    uint8_t mac[KOLT_MAC_SIZE];
    uint8_t port_low;
    uint8_t is_local; // 1: an address of the bridge itself
    uint32_t ageing_timer;
    uint8_t port_high;
    uint8_t unused[3];
};
static_assert(sizeof(fdb_entry) == 16);
static_assert(offsetof(fdb_entry, port_high) == 12);

// One client that is pinned to a port.
struct [[gnu::packed]] hd_entry {
    uint8_t client_mac[KOLT_MAC_SIZE];
    uint8_t second_mac[KOLT_MAC_SIZE]; // handed back unchanged when the entry is added again
    uint32_t port;                     // kernel interface index
    uint8_t unused[8];
};
static_assert(sizeof(hd_entry) == 24);
static_assert(offsetof(hd_entry, port) == 12);

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

// Fetches a table of the bridge. On success stores the entries in *buffer, which the caller frees with
// bridgeFreeTableBuf, and their number in *count, and returns 1; else returns 0 and stores nothing.
int kolt_get_duon_bridge_table(const char *bridge, uint32_t kind, void **buffer, uint32_t *count);

// Adds, or replaces, a client's HD entry; 1, or 0 when the library refuses.
int kolt_add_hd_entry(const char *bridge, const uint8_t *second_mac, const uint8_t *client_mac, const char *ifname);

// Deletes a client's HD entries; 1, or 0 when the library refuses.
int kolt_delete_hd_entry(const char *bridge, const uint8_t *mac, const uint8_t *second_mac, const char *ifname);

// Points a stream's HA bucket at the path `ifname`; 1, or 0 when the library refuses.
int kolt_set_ha_entry(const char *bridge, uint16_t hash, const uint8_t *src_addr, const uint8_t *dst_addr,
                      uint16_t src_port, uint16_t dst_port, const char *ifname, uint16_t stream_kind,
                      uint32_t carried_value);

// The link that a port belongs to, as path selection tables it: one record a link type.
struct kolt_link_record {
    char name[KOLT_NAME_SIZE] = {};
    uint32_t index = 0;
    uint8_t flag = 0;
};

// The first of the five records whose name is that of the kernel interface `ifindex`, or null.
kolt_link_record *kolt_get_link_stats_by_port(kolt_link_record *records, uint32_t ifindex);

// Adds every HD entry whose port is among the five records again, on the interface of record `target`. 1, or 0 after a
// message when the table cannot be fetched.
int kolt_update_hd_table(const char *bridge, kolt_link_record *records, uint32_t target);
