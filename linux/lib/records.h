// The records that cross the platform libraries' ABI: what the tables consist of, and what events and netlink requests
// carry. Host order; callers read them wherever a buffer put them, hence packed.
#pragma once

#include <cstddef>
#include <cstdint>

// The tables, by the codes that bridgeTableAction takes.
enum bridge_table : int32_t {
    BRIDGE_TABLE_HD = 1,
    BRIDGE_TABLE_FDB = 2,
    BRIDGE_TABLE_HA = 8,
};

// One MAC of the forwarding table; also the payload of the bridge event for a MAC that was learnt or moved.
struct [[gnu::packed]] bridge_fdb_record {
    uint8_t mac[6];
    uint8_t port_low; // of the port's interface index
    uint8_t is_local; // 1: an address of the bridge itself
    uint32_t ageing_timer;
    uint8_t port_high;
    uint8_t unused[3];
};
static_assert(sizeof(bridge_fdb_record) == 16);
static_assert(offsetof(bridge_fdb_record, port_high) == 12);

// One client that is pinned to a port.
struct [[gnu::packed]] bridge_hd_record {
    uint8_t client_mac[6];
    uint8_t second_mac[6]; // as it was handed in with the entry
    uint32_t port;         // interface index
    uint8_t unused[8];
};
static_assert(sizeof(bridge_hd_record) == 24);
static_assert(offsetof(bridge_hd_record, port) == 12);

enum bridge_ha_flag : uint8_t {
    BRIDGE_HA_MERGEABLE = 0x10, // may be added to its forward stream as the other direction
    BRIDGE_HA_UNRANKED = 0x20,  // is not to be ranked
};

// One stream.
struct [[gnu::packed]] bridge_ha_record {
    uint16_t hash;
    uint8_t src_mac[6];
    uint8_t dst_mac[6];
    uint8_t unused_14[6];
    uint16_t src_port;
    uint16_t dst_port;
    uint16_t stream_kind; // 1 UDP, any other TCP
    uint8_t unused_26[2];
    uint32_t port; // interface index
    uint8_t unused_32[28];
    uint32_t packets; // both counters of the measuring period
    uint32_t bytes;
    uint32_t tx_packets;
    uint32_t tx_bytes;
    uint32_t reverse_packets; // filled by the caller, in its own copy
    uint32_t reverse_bytes;
    uint32_t carried_value;
    uint8_t flags; // bridge_ha_flag
    uint8_t unused_89[11];
};
static_assert(sizeof(bridge_ha_record) == 100);
static_assert(offsetof(bridge_ha_record, src_port) == 20);
static_assert(offsetof(bridge_ha_record, stream_kind) == 24);
static_assert(offsetof(bridge_ha_record, port) == 28);
static_assert(offsetof(bridge_ha_record, packets) == 60);
static_assert(offsetof(bridge_ha_record, carried_value) == 84);
static_assert(offsetof(bridge_ha_record, flags) == 88);

// One port of a bridge.
struct [[gnu::packed]] bridge_port_record {
    uint32_t ifindex;
    uint8_t unused[32];
};
static_assert(sizeof(bridge_port_record) == 36);

// One Ethernet interface of the device; the name ends in a zero byte.
struct ethernet_name_record {
    char name[16];
};
static_assert(sizeof(ethernet_name_record) == 16);

// A stream that this node moved to another path: for the parent, which sends the answers.
struct [[gnu::packed]] moved_stream_record {
    uint8_t parent_mac[6];
    uint8_t zero_6[2];
    uint8_t src_mac[6];
    uint8_t dst_mac[6];
    uint16_t src_port;
    uint16_t dst_port;
    uint32_t protocol; // IP protocol number
    uint8_t path;      // link type
    uint8_t zero_29[3];
};
static_assert(sizeof(moved_stream_record) == 32);
static_assert(offsetof(moved_stream_record, src_port) == 20);
static_assert(offsetof(moved_stream_record, path) == 28);

// The bridge events, message types of protocol 39.
enum bridge_event_type : uint16_t {
    BRIDGE_EVENT_LEARNT = 5, // payload: a bridge_fdb_record
    BRIDGE_EVENT_PORT_JOINED = 6,
    BRIDGE_EVENT_PORT_LEFT = 7,
};

// The neighbour message, type 4 of protocol 53: a child node has moved this stream of its own.
constexpr uint16_t NEIGHBOUR_FLOW_REPORT = 4;
struct [[gnu::packed]] flow_report_record {
    uint8_t src_mac[6];
    uint8_t dst_mac[6];
    uint16_t src_port;
    uint16_t dst_port;
    uint32_t protocol;
    uint8_t type;
};
static_assert(sizeof(flow_report_record) == 21);
