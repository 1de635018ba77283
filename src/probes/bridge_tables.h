// The three tables that the kernel bridge keeps: forwarding (FDB), high data rate (HD) and hash (HA). Their entries are
// read where the bridge library put them, which promises no alignment; hence the packed records.
#pragma once

#include "core/config.h"
#include "core/names.h"
#include "probes/streams/ha_table.h"
#include "probes/table_buffer.h"

#include <cstddef>
#include <cstdint>
#include <span>

enum kolt_table_kind : uint32_t { TABLE_HA = 0, TABLE_HD = 1, TABLE_FDB = 2 };

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

// Fetches a table of the bridge. On success stores the entries in *buffer, which the caller frees with
// bridgeFreeTableBuf, and their number in *count, and returns 1; else returns 0 and stores nothing.
int kolt_get_duon_bridge_table(const char *bridge, kolt_table_kind kind, void **buffer, uint32_t *count);

// A fetched table of the bridge and its entries; empty and false when it could not be fetched.
template <class Entry> struct fetched_table {
    table_buffer buffer;
    std::span<Entry> entries;

    explicit operator bool() const {
        return buffer != nullptr;
    }
};

template <class Entry> struct table_kind_of;
template <> struct table_kind_of<ha_table_entry> { static constexpr kolt_table_kind VALUE = TABLE_HA; };
template <> struct table_kind_of<hd_entry> { static constexpr kolt_table_kind VALUE = TABLE_HD; };
template <> struct table_kind_of<fdb_entry> { static constexpr kolt_table_kind VALUE = TABLE_FDB; };

// Fetches the table that has entries of this type.
template <class Entry> fetched_table<Entry> fetch_table(const char *bridge) {
    void *buffer = nullptr;
    uint32_t count = 0;
    if (kolt_get_duon_bridge_table(bridge, table_kind_of<Entry>::VALUE, &buffer, &count) != 1)
        return {};
    return {.buffer = table_buffer(buffer), .entries = {static_cast<Entry *>(buffer), count}};
}

// Adds, or replaces, a client's HD entry; 1, or 0 when the library refuses.
int kolt_add_hd_entry(const char *bridge, const uint8_t *second_mac, const uint8_t *client_mac, const char *ifname);

// Deletes a client's HD entries, which nothing in the daemon does so far; 1, or 0 when the library refuses.
int kolt_delete_hd_entry(const char *bridge, const uint8_t *mac, const uint8_t *second_mac, const char *ifname);

// Points a stream's HA bucket at the path `ifname`; 1, or 0 when the library refuses.
int kolt_set_ha_entry(const char *bridge, uint16_t hash, const uint8_t *src_addr, const uint8_t *dst_addr,
                      uint16_t src_port, uint16_t dst_port, const char *ifname, uint16_t stream_kind,
                      uint32_t carried_value);
