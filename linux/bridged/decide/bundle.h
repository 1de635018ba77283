// The links between the same two nodes, and which of them is the first choice.
#pragma once

#include "decide/frame.h"

#include <array>
#include <cstddef>
#include <cstdint>

constexpr size_t TREE_PORTS = 32; // backhaul ports of a node

enum port_group : uint8_t { PORT_RELAY = 0, PORT_NONRELAY = 1 };

// What is wished of a port, by the configuration at first and by whoever decides about the paths later.
struct port_wish {
    uint8_t type = 5; // KOLT_LINK_* of the daemon
    uint8_t class_ = 0;
    port_group group = PORT_RELAY;
    bool permit = false; // to carry the group frames of its class towards the parent
    bool need_ha = false;
    bool operator==(const port_wish &) const = default;
};

constexpr int NO_SLOT = -1;

// The wishes of the links of a bundle by their slot; null where the slot is not in it.
using bundle = std::array<const port_wish *, TREE_PORTS>;

// How good a link of this type is for group frames: 5 Ethernet, 3 and 2 the two 5 GHz ones, 1 2.4 GHz, 0 power line.
[[nodiscard]] int link_preference(uint8_t type);

// The one link of the bundle that carries the group frames of a class: of those of that class, or of all when there is
// none, the one in use while it is permitted, else the best permitted one, else the best. NO_SLOT without any.
[[nodiscard]] int bundle_choose(const bundle &links, unsigned bcast_class, int in_use);

// The best link of the bundle but for `slot`: where its streams go when it is lost. NO_SLOT without another.
[[nodiscard]] int bundle_backup(const bundle &links, int slot);
