// What a node must not forget while kolt-bridged is not running: a plain record for a file of this machine. It changes
// only when its place in the tree or that of a neighbour does.
#pragma once

#include "decide/tree.h"

#include <array>
#include <cstdint>

constexpr uint32_t TREE_RECORD_MAGIC = 0x6b6f6c74;
constexpr uint32_t TREE_RECORD_VERSION = 1;

struct saved_neighbour {
    uint64_t mac;
    uint32_t port;
    uint8_t link_flags;
    uint8_t said_hello;
    std::array<uint8_t, 2> zeros;
};

struct saved_port {
    uint32_t ifindex;
    uint8_t carrier;
    uint8_t alive;
    uint8_t quiet;
    uint8_t type; // the wish, member by member
    uint8_t class_;
    uint8_t group;
    uint8_t permit;
    uint8_t need_ha;
    std::array<uint8_t, 4> zeros;
    std::array<saved_neighbour, PORT_NEIGHBOURS> neighbours;
};

struct saved_node {
    node_id id;
    node_id root;
    node_id parent;
    uint32_t incarnation;
    uint32_t forgotten_incarnation;
    uint32_t version;
    std::array<uint32_t, BCAST_CLASSES> taking;
    uint8_t hops;
    uint8_t flags;
    uint8_t known;
    uint8_t had_another;
};

struct tree_record {
    uint32_t magic;
    uint32_t record_version;
    uint32_t size;
    uint32_t checksum; // of all behind it
    node_id id;
    uint64_t parent;
    node_id root;
    uint32_t incarnation;
    uint32_t version;
    std::array<uint32_t, BCAST_CLASSES> taking;
    std::array<int8_t, BCAST_CLASSES> taking_slot;
    uint8_t hops;
    uint8_t flags;
    uint8_t follow;
    std::array<uint8_t, 3> zeros;
    std::array<saved_port, TREE_PORTS> ports;
    std::array<saved_node, TREE_NODES> nodes;
};

// Two records are equal when their bytes are.
void tree_save(const tree &self, tree_record *record);

// Resumes where the record ends: same node, parent, root and hops, same roles and permissions, so that nothing moves;
// the bridge from whose address the node once got its id may have another one by now. False, and nothing taken over,
// when the record is not whole, of another layout or of nobody. Ports that are gone are to be removed, new ones added,
// and changed carriers told afterwards.
[[nodiscard]] bool tree_take_over(tree *self, const tree_record &record, uint64_t seed, uint64_t now_ms);
