// Which ports may carry broadcast.
#pragma once

#include "core/config.h"

#include <array>
#include <cstdint>

// How well each link type is liked as broadcast port; the higher wins, -1 is a link that is down.
using bcast_preference = std::array<int, KOLT_LINK_COUNT>;

// The chosen nonrelay port of each broadcast class; null where a class has none.
struct bcast_ports {
    config_interface *class_0 = nullptr;
    config_interface *class_1 = nullptr;
};

// The preferences under the links' present states, read from their runtime files.
bcast_preference current_bcast_preference();

// The best liked nonrelay port of a class, the first of equals; null when there is none.
config_interface *choose_bcast_port(config_interface **ports, uint32_t count, uint8_t bcast_class,
                                    const bcast_preference &preference);

// Chooses for both classes.
bcast_ports pick_bcast_ports(config_interface **ports, uint32_t count);

// 1 when the port is a relay port or a chosen one, else 0.
int bcast_allowed(const config_interface *port, const bcast_ports &chosen);
