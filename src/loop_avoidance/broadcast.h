// Which ports may carry broadcast.
#pragma once

#include "core/config.h"
#include "core/interface_list.h"

#include <array>
#include <cstdint>

// How well each link type is liked as broadcast port; the higher wins, -1 is a link that is down.
using bcast_preference = std::array<int, KOLT_LINK_COUNT>;

// The chosen nonrelay port of each broadcast class; null where a class has none.
struct bcast_ports {
    config_interface *class_0 = nullptr;
    config_interface *class_1 = nullptr;

    // Whether a port may carry broadcast: a relay port, or a chosen one.
    [[nodiscard]] bool allow(const config_interface *port) const {
        return port->is_relay() || port == class_0 || port == class_1;
    }
};

// The preferences under the links' present states, read from their runtime files.
bcast_preference current_bcast_preference();

// The best liked nonrelay port of a class, the first of equals; null when there is none.
config_interface *choose_bcast_port(port_span ports, uint8_t bcast_class, const bcast_preference &preference);

// The nonrelay port of a broadcast class that is to carry broadcast: the best liked of the links that are up, the first
// of equals; null when the class has no nonrelay port.
config_interface *loop_avoidance_pick_bcast_nonrelay_port(port_span ports, uint8_t bcast_class);

// Chooses for both classes.
bcast_ports pick_bcast_ports(port_span ports);

// Programs only the broadcast permission of every port anew.
void loop_avoidance_set_bcast_port(config *config);
