// What kolt-bridged does for each call of the platform libraries: filled in by whoever opens the server, called on the
// loop's thread. A handler must not wait, and must not close the server.
#pragma once

#include "lib/records.h"
#include "lib/requests.h"

// Takes the records of one table as they are produced, and gives them to the caller when the producer is done.
struct table_writer;

// Adds one record. Every record of a table has the size that belongs to it: bridge_hd_record, bridge_fdb_record,
// bridge_ha_record, bridge_port_record or ethernet_name_record. What the caller has no room for is only counted.
void table_add_bytes(table_writer *table, const void *record, size_t size);

template <class Record> void table_add(table_writer *table, const Record &record) {
    table_add_bytes(table, &record, sizeof record);
}

// Every pointer is called with `context`, and every one may be null: the call then fails. Results are 0, or anything
// else for a failure, of which the caller learns no more. Names are terminated; that of the bridge is not empty, the
// others may be. MACs have 6 bytes; one that the caller left out is zero.
struct request_handlers {
    void *context;

    // The bridge as a whole.
    int (*set_bridge_mode)(void *context, const char *bridge, int32_t mode);
    int (*set_tcp_sp)(void *context, const char *bridge, int32_t value);
    int (*set_follow_re)(void *context, const char *bridge, int32_t value);

    // One port of the bridge.
    int (*set_if_group)(void *context, const char *bridge, const char *ifname, int32_t group, int32_t group_again);
    int (*set_if_type)(void *context, const char *bridge, const char *ifname, int32_t type);
    int (*set_if_class)(void *context, const char *bridge, const char *ifname, int32_t bcast_class);
    int (*set_if_path)(void *context, const char *bridge, const char *ifname, int32_t path);
    int (*set_if_compat)(void *context, const char *bridge, const char *ifname, int32_t compat_group);
    int (*set_if_broadcast)(void *context, const char *bridge, const char *ifname, int32_t allow);
    int (*set_needha)(void *context, const char *bridge, const char *ifname, int32_t needha);
    int (*set_couple)(void *context, const char *bridge, const char *ifname, const char *couple, int32_t first);

    // Adds the records of a table; nothing of them is sent when the result is not 0.
    int (*get_table)(void *context, const char *bridge, bridge_table code, table_writer *table);

    // Single entries.
    int (*add_hd_entry)(void *context, const char *bridge, const uint8_t *client_mac, const uint8_t *second_mac,
                        const char *ifname, const char *ifname_again);
    int (*delete_hd_entries)(void *context, const char *bridge, const uint8_t *mac, const uint8_t *second_mac,
                             const char *ifname);
    int (*set_ha_entry)(void *context, const char *bridge, const uint8_t *src_mac, const uint8_t *dst_mac,
                        const stream_key &stream, const char *ifname);
    int (*flush_hd_table)(void *context, const char *bridge);
    int (*flush_ha_table)(void *context, const char *bridge);
    int (*flush_fdb)(void *context, const char *bridge, const char *ifname);

    // Process `pid`, as it numbers itself, wants the events of this bridge. Where they go is the event sockets'
    // business: who wants events has one.
    int (*set_event_info)(void *context, const char *bridge, int32_t pid, int32_t events, int32_t protocol);

    // 0 when there is such a bridge.
    int (*check_bridge)(void *context, const char *bridge);

    // Adds a bridge_port_record for each port.
    int (*get_ports)(void *context, const char *bridge, table_writer *table);

    // Adds an ethernet_name_record for each Ethernet interface of the device.
    int (*get_ethernets)(void *context, table_writer *table);

    // A socket for the events of a protocol (39 or 53) was opened, or has come back: events sent from now on reach it.
    void (*event_socket_added)(void *context, int32_t protocol, int32_t pid);

    // The requests of protocol 52.
    int (*register_neighbours)(void *context, int32_t pid);
    int (*moved_stream)(void *context, const moved_stream_record &stream);
};
