// What the two traffic control programs and kolt-bridged share: the records of the maps and of the frames that the
// programs answer. Read by the compiler for the kernel's machine (C) and by C++.
#ifndef KOLT_BPF_RECORDS_H
#define KOLT_BPF_RECORDS_H

#include <linux/types.h>

// Told apart in the pins: goes up with every change of a record below, or of what a map means, that an older process
// would take for something else.
enum { KOLT_LAYOUT_VERSION = 1 };

enum {
    KOLT_MAX_PORTS = 65536, // an interface index from here on cannot be a port
    KOLT_MAX_LINKS = 256,   // with an identity
    KOLT_MAX_HD = 4096,
    KOLT_MAX_STREAMS = 16384,
    KOLT_MAX_ROAMED = KOLT_MAX_HD, // so that none is lost, however many speak elsewhere at once
};

// `ports`, by interface index. What counts is one 32-bit word, so that a program never sees half of a change on any
// machine. A word of 0 is an access port of class 0; where a program stands on such a port, nothing passes.
struct kolt_port_entry {
    __u32 word;
    __u32 foreign; // frames that no node sends, counted by the programs while the port is closed: those of hosts
};

enum {
    KOLT_PORT_GROUP_MASK = 0x0000ffff, // split horizon and stream targets; 0 = no group
    KOLT_PORT_FLAGS_SHIFT = 16,
    KOLT_PORT_ADMITS_SHIFT = 20,
    KOLT_PORT_ACCEPTS_SHIFT = 24,
    KOLT_PORT_CLASS_SHIFT = 28,
    KOLT_PORT_FIELD_MASK = 0xf, // flags, admits and accepts
    KOLT_PORT_CLASS_MASK = 0x3,
};

enum {
    KOLT_PORT_OPEN = 1,    // frames pass; else only neighbour frames do
    KOLT_PORT_NEED_HA = 2, // streams that leave here to a MAC of `hd` get an entry
    KOLT_PORT_FOLLOW = 4,  // streams leave by the link on which their other direction arrived
    KOLT_PORT_GUARDED = 8, // the programs stand on this port; they do not read it
};

// `streams`, by slot. The program writes all of it when it takes the slot, the counters and, on FOLLOW ports, the
// target at each frame; kolt-bridged writes `target` and `state`, and nothing else of a slot in use.
enum {
    KOLT_STREAM_FREE = 0,
    KOLT_STREAM_USED = 1,
    KOLT_STREAM_DYING = 2, // its key is gone; the slot rests until no program can still be counting in it
};

enum { KOLT_STREAM_UDP = 1, KOLT_STREAM_TCP = 2 };

struct kolt_stream_key {
    __u8 src[6];
    __u8 dst[6];
    __be16 src_port;
    __be16 dst_port;
    __u16 kind;
    __u16 hash; // of the two IP addresses, the same in both directions
};

struct kolt_stream {
    __u32 target; // interface index of the port by which the stream leaves
    __u32 state;
    __u64 tx_packets;
    __u64 tx_bytes;
    __u64 rx_packets; // of the other direction
    __u64 rx_bytes;
    struct kolt_stream_key key;
    __u32 generation; // another one for each stream that has had the slot
};

// `hd`: client MAC to interface index.
struct kolt_hd_key {
    __u8 mac[6];
    __u16 zero;
};

// `identities`, by interface index: with what a probe that arrives there is answered; none while `valid` is 0.
struct kolt_port_identity {
    __u8 node[8]; // as it stands in a frame
    __u8 mac[6];  // the port's own
    __u16 valid;
};

// The head of every neighbour frame, as far as the programs know it. A probe of at least this length and of this
// version is turned into an echo: the kind, the source address and `echoed_by` are overwritten, all else goes back
// untouched.
enum {
    KOLT_NEIGHBOUR_ETHERTYPE = 0x88b5,
    KOLT_NEIGHBOUR_VERSION = 1,
    KOLT_NEIGHBOUR_HELLO = 1,
    KOLT_NEIGHBOUR_PROBE = 2,
    KOLT_NEIGHBOUR_ECHO = 3,
    KOLT_NEIGHBOUR_ADDRESS_END = 0x0e, // 01:80:c2:00:00:0e
};

struct kolt_neighbour_head {
    __u8 dst[6]; // 01:80:c2:00:00:0e
    __u8 src[6];
    __u8 ethertype[2];
    __u8 version;
    __u8 kind;
    __u8 node[8]; // of the sender; most significant byte first, as all numbers of a frame
    __u8 port[4];
    __u8 sequence[4];
    __u8 echoed_by[8]; // node that answered; zero in a probe
};

#ifdef __cplusplus
static_assert(sizeof(kolt_stream_key) == 20 && sizeof(kolt_stream) == 64 && sizeof(kolt_hd_key) == 8);
static_assert(sizeof(kolt_port_entry) == 8 && sizeof(kolt_port_identity) == 16 && sizeof(kolt_neighbour_head) == 40);
#endif

#endif
