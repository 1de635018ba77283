// What the platform libraries and kolt-bridged say to each other, on one machine: plain records in host order, one a
// message, over a SOCK_SEQPACKET socket.
//
// A connection begins with a connection_hello, which is not answered; whoever is not understood is hung up on. On a
// connection of calls every call_request gets one call_reply, and the next request may be sent once the reply was
// read. Records of a table come as a sealed memory file that the reply carries (SCM_RIGHTS). On a connection of netlink
// requests the messages are those of netlink protocol 52, and so are the answers.
#pragma once

#include <cstddef>
#include <cstdint>

// The folder of kolt-bridged that the libraries know, and its socket there.
#define KOLT_BRIDGED_RUN "/run/kolt-bridged"
#define KOLT_BRIDGED_SOCKET_NAME "socket"
#define KOLT_BRIDGED_SOCKET KOLT_BRIDGED_RUN "/" KOLT_BRIDGED_SOCKET_NAME

constexpr uint32_t REQUESTS_MAGIC = 0x6b6f6c74;
constexpr uint16_t REQUESTS_VERSION = 1;

constexpr size_t REQUEST_NAME_SIZE = 16; // of a bridge or an interface, its terminator included
constexpr size_t REQUEST_MAC_SIZE = 6;
constexpr uint32_t MAX_TABLE_RECORDS = 1U << 20; // no honest bridge has more; a reply that says so is not believed

// The netlink protocols that a stock kernel lacks.
enum bridged_protocol : int32_t {
    PROTOCOL_BRIDGE_EVENTS = 39,
    PROTOCOL_REQUESTS = 52,
    PROTOCOL_NEIGHBOURS = 53,
};

// The message types of protocol 52.
enum netlink_request_type : uint16_t {
    NETLINK_REGISTER_NEIGHBOURS = 13, // payload: the process id, 4 bytes
    NETLINK_MOVED_STREAM = 14,        // payload: a moved_stream_record
};

enum connection_kind : uint16_t {
    CONNECTION_CALLS = 1,
    CONNECTION_NETLINK_REQUESTS = 2,
};

struct connection_hello {
    uint32_t magic;
    uint16_t version;
    uint16_t kind; // connection_kind
};
static_assert(sizeof(connection_hello) == 8);

// The calls, in the order of the libraries' headers. bridgeAllocTableBuf and bridgeFreeTableBuf are not among them: a
// buffer is the caller's own memory. The first words of a comment say which members of the request carry the arguments
// behind bridge and ifname.
enum call_code : uint16_t {
    CALL_SET_BRIDGE_MODE = 1,    // values[0]
    CALL_SET_TCP_SP = 2,         // values[0]
    CALL_SET_FOLLOW_RE = 3,      // values[0]
    CALL_SET_IF_GROUP = 4,       // values[0] the group, values[1] the group again
    CALL_SET_IF_TYPE = 5,        // values[0]
    CALL_SET_IF_CLASS = 6,       // values[0]
    CALL_SET_IF_PATH = 7,        // values[0]
    CALL_SET_IF_COMPAT = 8,      // values[0]
    CALL_SET_IF_BROADCAST = 9,   // values[0]
    CALL_SET_NEEDHA = 10,        // values[0]
    CALL_SET_COUPLE = 11,        // other_name the couple, values[0] whether it is the first
    CALL_GET_TABLE = 12,         // values[0] the table's code, capacity
    CALL_ADD_HD_ENTRY = 13,      // mac the client's, second_mac, other_name the interface again, values[0] a zero
    CALL_DELETE_HD_ENTRIES = 14, // mac the client's, second_mac
    CALL_SET_HA_ENTRY = 15,      // mac the source's, second_mac the destination's, stream
    CALL_FLUSH_HD_TABLE = 16,
    CALL_FLUSH_HA_TABLE = 17,
    CALL_FLUSH_FDB = 18,        // of one port
    CALL_SET_EVENT_INFO = 19,   // values[0] the process id, values[1] the events, values[2] the protocol
    CALL_CHECK_BRIDGE = 20,     // netlink_msg of type 0
    CALL_GET_PORTS = 21,        // netlink_msg of type 256; capacity; comes back as bridge_port_records
    CALL_GET_ETHERNETS = 22,    // capacity; comes back as ethernet_name_records
    CALL_ADD_EVENT_SOCKET = 23, // values[0] the protocol, values[1] the process id; carries the socket to write to
    CALL_CODE_END,
};

// What tells a stream, and what else is to be kept with it.
struct stream_key {
    uint16_t hash;
    uint16_t src_port;
    uint16_t dst_port;
    uint16_t stream_kind; // 1 UDP, any other TCP
    uint32_t carried_value;
};
static_assert(sizeof(stream_key) == 12);

// What a call does not use is zero. Names end in a zero byte; that of the bridge is never empty, except in the calls
// that are not about a bridge.
struct call_request {
    uint32_t sequence; // comes back in the reply
    uint16_t call;     // call_code
    uint16_t reserved; // zero
    char bridge[REQUEST_NAME_SIZE];
    char ifname[REQUEST_NAME_SIZE];
    char other_name[REQUEST_NAME_SIZE];
    uint8_t mac[REQUEST_MAC_SIZE];
    uint8_t second_mac[REQUEST_MAC_SIZE];
    int32_t values[3];
    uint32_t capacity; // records of a table that the caller has room for
    stream_key stream;
};
static_assert(sizeof(call_request) == 96);
static_assert(offsetof(call_request, mac) == 56);
static_assert(offsetof(call_request, values) == 68);
static_assert(offsetof(call_request, stream) == 84);

// With a result of 0 the table's records follow in a memory file, as many as there are and the caller has room for; no
// file when that is none.
struct call_reply {
    uint32_t sequence;
    int32_t result; // 0, or the failure
    uint32_t count; // records that the table has
    uint32_t record_size;
};
static_assert(sizeof(call_reply) == 16);
