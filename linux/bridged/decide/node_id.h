// Who a node is, and which of two makes the better root: the smaller one.
#pragma once

#include <cstdint>

// The node's rank above its 48-bit MAC. 0 is nobody.
using node_id = uint64_t;

enum node_rank : uint16_t {
    NODE_RANK_ROOT = 0, // the way to the rest of the network
    NODE_RANK_EXTENDER = 1,
};

constexpr unsigned NODE_RANK_SHIFT = 48;
constexpr node_id NODE_MAC_MASK = (node_id{1} << NODE_RANK_SHIFT) - 1;

// The MAC must be of one bridge of one node: two bridges of a node are two nodes.
[[nodiscard]] constexpr node_id make_node_id(node_rank rank, const uint8_t *mac) {
    node_id id = rank;
    for (unsigned i = 0; i < 6; i++)
        id = id << 8 | mac[i];
    return id;
}

[[nodiscard]] constexpr uint64_t node_mac(node_id id) {
    return id & NODE_MAC_MASK;
}

[[nodiscard]] constexpr uint16_t rank_of(node_id id) {
    return static_cast<uint16_t>(id >> NODE_RANK_SHIFT);
}

// A node keeps its MAC when its mode changes, and with it its place among its neighbours.
[[nodiscard]] constexpr bool same_node(node_id a, node_id b) {
    return node_mac(a) == node_mac(b);
}
