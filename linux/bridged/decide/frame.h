// The frames between the two ends of a backhaul link, as bytes and as a record. They never leave the link.
//
// Offsets from the start of the Ethernet header; numbers stand with their most significant byte first:
//    0 destination 01:80:c2:00:00:0e    12 ethertype       14 version         15 kind
//   16 node id (8)                      24 port (4)        28 sequence (4)    32 echoed by: node id (8)
//   40 length of all from 42 on (2)
// That is a probe, of length 0, and its echo. A hello goes on with:
//   42 incarnation (4)   46 state version (4)   50 root (8)    58 parent (8)     66 taking port, per class (4 each)
//   74 hops              75 node flags          76 link flags  77 joins          78 streams, the number of each
//   79 the joins (17 each: kind, origin, token), then the streams (18 each)
#pragma once

#include "decide/node_id.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

constexpr uint16_t FRAME_ETHERTYPE = 0x88b5;
constexpr uint8_t FRAME_VERSION = 1;
constexpr size_t FRAME_VERSION_OFFSET = 14;
constexpr size_t FRAME_KIND_OFFSET = 15; // the programs make a probe an echo here
constexpr size_t FRAME_NODE_OFFSET = 16;
constexpr size_t FRAME_ECHOED_BY_OFFSET = 32;
constexpr size_t FRAME_HEAD_SIZE = 40; // what whoever answers a probe must know
constexpr size_t FRAME_MIN_SIZE = 42;
constexpr size_t FRAME_HELLO_SIZE = 79; // without records
constexpr size_t FRAME_JOIN_SIZE = 17;
constexpr size_t FRAME_STREAM_SIZE = 18;
constexpr size_t FRAME_JOINS = 8; // of one frame
constexpr size_t FRAME_STREAMS = 32;
constexpr size_t FRAME_MAX_SIZE = FRAME_HELLO_SIZE + FRAME_JOINS * FRAME_JOIN_SIZE + FRAME_STREAMS * FRAME_STREAM_SIZE;

constexpr unsigned BCAST_CLASSES = 2;

enum frame_kind : uint8_t { FRAME_HELLO = 1, FRAME_PROBE = 2, FRAME_ECHO = 3 };

enum node_flag : uint8_t {
    NODE_BELOW_FROZEN = 1, // somebody on the way to the root decides nothing at present: nobody can join through here
};

// What the sender makes of the link that the frame is on.
enum link_flag : uint8_t {
    LINK_ALIVE = 1,  // its own probes come back
    LINK_SHARED = 2, // it hears more than one node here, and does not use the link
    LINK_UPWARD = 4, // it is among the links by which the sender reaches its parent
};

enum join_kind : uint8_t { JOIN_REQUEST = 1, JOIN_GRANT = 2 };

// The wish of `origin`, a root, to become the child of a neighbour, on its way to that tree's root or back. `token` is
// of whoever sent the request over this link and tells its requests apart.
struct join_record {
    join_kind kind = JOIN_REQUEST;
    node_id origin = 0;
    uint64_t token = 0;
    bool operator==(const join_record &) const = default;
};

// A stream that its sender has moved to another link: the other end drops what it remembers of it.
struct stream_notice {
    std::array<uint8_t, 6> src{};
    std::array<uint8_t, 6> dst{};
    uint16_t src_port = 0; // host order
    uint16_t dst_port = 0;
    uint8_t protocol = 0; // of IP
    uint8_t type = 0;     // of the link that it takes now
    bool operator==(const stream_notice &) const = default;
};

struct neighbour_frame {
    frame_kind kind = FRAME_HELLO;
    node_id node = 0;
    uint32_t port = 0; // the sender's interface index
    uint32_t sequence = 0;
    node_id echoed_by = 0; // of an echo

    // Of a hello only. The state is that of the node, the same on all of its links at one version.
    uint32_t incarnation = 0; // another one when the node has forgotten what it was
    uint32_t version = 0;
    node_id root = 0;
    node_id parent = 0;                           // 0 of a root
    std::array<uint32_t, BCAST_CLASSES> taking{}; // its ports on which it takes its parent's group frames; 0 = none
    uint8_t hops = 0;
    uint8_t node_flags = 0;
    uint8_t link_flags = 0;
    uint8_t join_count = 0;
    uint8_t stream_count = 0;
    std::array<join_record, FRAME_JOINS> joins{};
    std::array<stream_notice, FRAME_STREAMS> streams{};

    bool operator==(const neighbour_frame &) const = default;
};

// Writes the frame with its Ethernet header and returns its size; 0 when `out` is too short or a count too high.
[[nodiscard]] size_t frame_encode(const neighbour_frame &frame, const uint8_t *source_mac, std::span<uint8_t> out);

// Reads a frame that begins with its Ethernet header; false when it is none, of another version, or not as long as it
// says. Bytes behind its end are padding.
[[nodiscard]] bool frame_decode(std::span<const uint8_t> bytes, neighbour_frame *frame);
