// The tree of nodes as one of them sees it: who its parent and children are, by which links, and what it must tell its
// neighbours. A record and functions on it: whoever owns it hands in the time, what the kernel says and what arrives.
//
// Every node has at most one parent and carries group frames only between itself, its parent and its children. So
// there is a circle only if the parents form one, and that cannot be: see join.h.
//
// After each call, `changes` tells whether the ports' words may be others (port_words.h). The owner then does, in this
// order: the closing steps; save the record (tree_save) if it differs from the one saved last; send all frames that
// tree_take_frame has; the opening steps. Whoever dies in between is found, by the next life and by the neighbours, in
// a state that is safe.
#pragma once

#include "decide/bundle.h"
#include "decide/frame.h"

#include <array>
#include <cstdint>

constexpr size_t PORT_NEIGHBOURS = 4;
constexpr size_t TREE_NODES = 32; // neighbour nodes
constexpr size_t TREE_JOINS = 16; // requests of others that pass through
constexpr size_t TREE_NOTICES = 128;
constexpr uint8_t TREE_MAX_HOPS = 32;

// In intervals, but for the interval itself.
struct tree_timing {
    uint32_t interval_ms = 100; // between two frames of a kind
    uint32_t dead = 3;          // without an echo
    uint32_t quiet = 4;         // without a neighbour: a port is an access port
    uint32_t join = 10;         // until a neighbour is given up that does not let this node join, at first
    uint32_t rest = 2;          // between two such neighbours
    uint32_t better = 1;        // a neighbour of a better tree has been there: the parent may find its way back first
    uint32_t nearer = 20;       // a neighbour with a shorter way to the same root has been there
    uint32_t memory = 200;      // of a neighbour that is silent
    uint32_t pause = 15;        // between two frames of hosts that talk
};

enum port_role : uint8_t {
    ROLE_CLOSED = 0,
    ROLE_ACCESS = 1,  // hosts, not nodes
    ROLE_OUTSIDE = 2, // a nonrelay port without a node behind it: towards whatever feeds a root
    ROLE_UPLINK = 3,
    ROLE_DOWNLINK = 4,
};

struct port_neighbour {
    uint64_t mac = 0; // 0 = nobody
    uint32_t port = 0;
    uint64_t heard_ms = 0; // any frame, or its answer to a probe
    bool said_hello = false;
    uint8_t link_flags = 0; // as last said
};

struct tree_port {
    uint32_t ifindex = 0; // 0 = the slot is free
    port_wish wish;
    bool carrier = false;
    bool alive = false;
    bool was_dead = false; // since the carrier came
    bool quiet = false;    // the time to hear a neighbour has passed without one
    uint8_t echoes = 0;    // in a row while dead
    uint8_t said_flags = 0;
    bool hello_due = false;
    bool probe_due = false;
    port_role role = ROLE_CLOSED;
    uint8_t node = 0;    // index of the parent or child, of an uplink or downlink
    uint8_t carries = 0; // a bit per class: group frames that leave here
    uint32_t sequence = 0;
    uint32_t first_sequence = 0; // of the probes since the carrier came
    uint64_t up_ms = 0;
    uint64_t echoed_ms = 0;
    uint32_t foreign = 0; // frames that no node sends, as last counted
    bool foreign_counted = false;
    uint64_t foreign_since_ms = 0; // since when they come in while every neighbour is silent, 0 = they do not
    uint64_t foreign_ms = 0;       // and when they last did
    std::array<port_neighbour, PORT_NEIGHBOURS> neighbours;
};

// A neighbour's own words, whichever link they came by.
struct tree_node {
    node_id id = 0; // 0 = the place is free
    uint32_t incarnation = 0;
    uint32_t forgotten_incarnation = 0; // whatever of it still comes is late
    bool had_another = false;
    bool known = false; // it has said hello
    uint32_t version = 0;
    node_id root = 0;
    node_id parent = 0;
    std::array<uint32_t, BCAST_CLASSES> taking{};
    uint8_t hops = 0;
    uint8_t flags = 0;
    uint64_t heard_ms = 0;   // its last hello that was believed
    uint64_t refused_ms = 0; // the last that was not, 0 when one was believed since
    uint8_t refusals = 0;
    uint64_t refused_until_ms = 0;
};

// A request on its way to the root: what the grant that comes back with `token` is to be turned into.
struct passing_join {
    uint64_t token = 0; // 0 = the place is free
    uint64_t from = 0;  // MAC
    uint64_t from_token = 0;
    node_id origin = 0;
    uint64_t until_ms = 0;
};

struct pending_join {
    uint64_t token = 0; // 0 = none
    uint64_t to = 0;    // MAC
    uint64_t since_ms = 0;
};

// What waits to be told to a neighbour.
struct join_to_send {
    uint32_t ports = 0; // slots that it has still to be sent on; none = the place is free
    join_record record;
};

struct tree {
    tree_timing timing;
    node_id id = 0;
    uint32_t incarnation = 0;
    uint32_t version = 0;
    uint64_t next_token = 0;
    bool follow = false; // streams leave towards a child by the link on which they arrive

    uint64_t parent = 0; // MAC
    node_id root = 0;
    uint8_t hops = 0;
    uint8_t flags = 0;
    std::array<int8_t, BCAST_CLASSES> taking_slot{NO_SLOT, NO_SLOT};
    std::array<uint32_t, BCAST_CLASSES> taking{}; // as told: 0 without a parent

    pending_join pending;
    uint64_t rest_until_ms = 0;
    uint64_t offer_from = 0; // a neighbour that would be a better parent, and since when
    uint8_t offer_kind = 0;
    uint64_t offer_since_ms = 0;

    uint64_t now_ms = 0;   // the tree's own time, as all times in here
    uint64_t beat_ms = 0;  // when frames are due to all
    uint64_t slept_ms = 0; // by which that time is behind
    uint32_t changes = 0;  // goes up when a role, or who takes what where, is another

    std::array<tree_port, TREE_PORTS> ports;
    size_t port_slots = 0; // those behind have never been used: most nodes have a few
    std::array<tree_node, TREE_NODES> nodes;
    size_t node_places = 0;
    std::array<passing_join, TREE_JOINS> passing;
    std::array<join_to_send, TREE_JOINS> outgoing;
    std::array<stream_notice, TREE_NOTICES> notices;
    uint32_t notice_first = 0;
    uint32_t notice_count = 0;
};

// The frame to send next.
struct tree_send {
    uint32_t ifindex = 0;
    neighbour_frame frame;
};

// Begins without a past, with the timing that the record has. `incarnation` and `seed` are random; no two lives of a
// node may share them.
void tree_start(tree *self, node_id id, uint32_t incarnation, uint64_t seed, uint64_t now_ms);

// Goes on with what has just been filled in from a record (record.h).
void tree_resume(tree *self);

// The mode of the node is another. Nothing moves unless the order of the nodes demands it.
void tree_set_rank(tree *self, node_rank rank, uint64_t now_ms);
void tree_set_follow(tree *self, bool follow, uint64_t now_ms);

// A backhaul port is there. False when there are too many, and the port must stay closed. A port that is there already
// (it was taken over from a record) keeps its state, the wish included, but for the carrier.
[[nodiscard]] bool tree_port_add(tree *self, uint32_t ifindex, const port_wish &wish, bool carrier, uint64_t now_ms);
void tree_port_remove(tree *self, uint32_t ifindex, uint64_t now_ms);
void tree_port_carrier(tree *self, uint32_t ifindex, bool carrier, uint64_t now_ms);
void tree_port_wish(tree *self, uint32_t ifindex, const port_wish &wish, uint64_t now_ms);

// So many frames that no node sends have reached the port while it was closed: to be told at every beat. A port whose
// neighbour has been silent for long is given to hosts only when such frames come in, and go on without a long pause
// for as long as it takes to hear a neighbour. A link that is dead in both directions stays closed, and may come back
// at any time.
void tree_port_foreign(tree *self, uint32_t ifindex, uint32_t count, uint64_t now_ms);

// Frames came in by the port since a while shorter than an interval. While the neighbour says that it hears this node,
// echoes that fail to come are those of a full queue, and not of a dead link.
void tree_port_heard(tree *self, uint32_t ifindex, uint64_t now_ms);

// A frame arrived. Probes may be handed in or left out.
void tree_receive(tree *self, uint32_t ifindex, const neighbour_frame &frame, uint64_t now_ms);

// Time has passed. To be called at least at tree_next_ms. Until it is, the tree's own time stands still: whoever was
// asleep has sent no probes and read no frames, and must not take the others for dead.
void tree_tick(tree *self, uint64_t now_ms);
[[nodiscard]] uint64_t tree_next_ms(const tree &self);

// What time it is for the tree.
[[nodiscard]] uint64_t tree_time(const tree &self, uint64_t now_ms);

// The next frame to be sent; false when there is none left.
[[nodiscard]] bool tree_take_frame(tree *self, tree_send *send);

// A stream was moved: the parent is told with the next hello. False when too many wait, or there is no parent.
bool tree_tell_stream(tree *self, const stream_notice &notice);

// Whether what arrives on this port comes from a child, whose notices are to be heeded.
[[nodiscard]] bool tree_is_child_port(const tree &self, uint32_t ifindex);

// The slot of a port, or NO_SLOT.
[[nodiscard]] int tree_slot(const tree &self, uint32_t ifindex);
