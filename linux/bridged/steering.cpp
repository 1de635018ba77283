// Groups as the ports are set, which the programs go by as well.
#include "bridged/steering.h"

#include <algorithm>
#include <span>

uint32_t steering_group(const bridge_node *node, uint32_t ifindex) {
    const int slot = tree_slot(node->links, ifindex);
    return slot == NO_SLOT ? GROUP_NONE : node->set[static_cast<size_t>(slot)].word.group;
}

bool steering_allowed(const bridge_node *node, uint32_t now, uint32_t group) {
    const std::span<const bridge_node> nodes(node->owner->bridges.data(), node->owner->bridge_count);
    return std::all_of(nodes.begin(), nodes.end(), [&](const bridge_node &one) {
        const uint32_t leads_to = steering_group(&one, now);
        return leads_to == GROUP_NONE || (&one == node && leads_to == group);
    });
}
