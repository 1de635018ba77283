// Fetching the tables, with one retry where they do not fit, and writing single entries.
#include "probes/bridge_tables.h"

#include "core/log.h"

#include <algorithm>
#include <limits>

namespace {

constexpr uint32_t FIRST_CAPACITY = 5000; // entries; fits the common case in one call
constexpr uint32_t SPARE_CAPACITY = 500;  // for entries that appear between the two calls

struct table_format {
    uint32_t entry_size;
    int library_code;
};

// The format of a kind of table; an entry size of 0 for an unknown kind.
table_format format_of(kolt_table_kind kind) {
    switch (kind) {
    case TABLE_HA:
        return {sizeof(ha_table_entry), 8};
    case TABLE_HD:
        return {sizeof(hd_entry), 1};
    case TABLE_FDB:
        return {sizeof(fdb_entry), 2};
    default:
        return {0, 0};
    }
}

struct attempt {
    table_buffer entries;
    uint32_t count = 0; // reported by the library
    uint32_t capacity = 0;
    bool fits = false;
};

// Makes one attempt with room for `capacity` entries; no entries when no buffer could be had.
attempt fetch(const char *bridge, const table_format &format, uint64_t capacity) {
    attempt table;
    const uint64_t size = capacity * format.entry_size;
    if (size > std::numeric_limits<uint32_t>::max())
        return table;
    table.entries.reset(bridgeAllocTableBuf(static_cast<uint32_t>(size), bridge));
    if (!table.entries)
        return table;
    table.capacity = static_cast<uint32_t>(capacity);
    table.count = table.capacity;
    table.fits = bridgeTableAction(bridge, format.library_code, &table.count, table.entries.get(), 0) == 0;
    return table;
}

} // namespace

int kolt_get_duon_bridge_table(const char *bridge, kolt_table_kind kind, void **buffer, uint32_t *count) {
    const table_format format = format_of(kind);
    if (format.entry_size == 0)
        return 0;
    attempt table = fetch(bridge, format, FIRST_CAPACITY);
    if (!table.entries) {
        KOLT_ERROR("alloac buffer error");
        return 0;
    }
    if (!table.fits) {
        table.entries.reset();
        if (table.count <= FIRST_CAPACITY)
            return 0;
        table = fetch(bridge, format, uint64_t{table.count} + SPARE_CAPACITY);
        if (!table.entries) {
            KOLT_ERROR("realloac buffer error");
            return 0;
        }
        if (!table.fits) {
            KOLT_ERROR("get table failed again");
            return 0;
        }
    }
    *count = std::min(table.count, table.capacity);
    *buffer = table.entries.release();
    return 1;
}

int kolt_add_hd_entry(const char *bridge, const uint8_t *second_mac, const uint8_t *client_mac, const char *ifname) {
    return bridgeAddHDTableEntries(bridge, client_mac, second_mac, ifname, ifname, 0) != -1 ? 1 : 0;
}

int kolt_delete_hd_entry(const char *bridge, const uint8_t *mac, const uint8_t *second_mac, const char *ifname) {
    return bridgeDelHDTableEntriesByMAC(bridge, mac, second_mac, ifname) != -1 ? 1 : 0;
}

int kolt_set_ha_entry(const char *bridge, uint16_t hash, const uint8_t *src_addr, const uint8_t *dst_addr,
                      uint16_t src_port, uint16_t dst_port, const char *ifname, uint16_t stream_kind,
                      uint32_t carried_value) {
    return bridgeSetHATableEntries(bridge, hash, src_addr, dst_addr, src_port, dst_port, ifname, stream_kind,
                                   carried_value) != -1
               ? 1
               : 0;
}
