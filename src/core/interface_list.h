// Sets of configured interfaces, in the order in which the bridge reported them. The records are the configuration's.
#pragma once

#include "core/interface.h"

#include <cstdint>
#include <span>

using port_span = std::span<config_interface *const>;

// What the probes and the flow cache are handed.
struct kolt_interface_list {
    uint8_t count = 0;
    config_interface **interfaces = nullptr;

    [[nodiscard]] port_span span() const {
        return {interfaces, count};
    }
};

// Room for all ports of a bridge.
struct kolt_port_list {
    uint8_t count = 0;
    config_interface *ports[CONFIG_MAX_INTERFACES];

    // Adds a port; there is room for every configured interface once.
    void add(config_interface *port) {
        ports[count++] = port;
    }
    [[nodiscard]] port_span span() const {
        return {ports, count};
    }
    [[nodiscard]] kolt_interface_list list() {
        return {.count = count, .interfaces = ports};
    }
};

// 1 when a port of the list has this kernel index and is nonrelay, else 0.
[[nodiscard]] inline int kolt_check_norelay_port(uint32_t ifindex, const kolt_interface_list *list) {
    for (const config_interface *port : list->span()) {
        if (port->ifindex == ifindex && !port->is_relay())
            return 1;
    }
    return 0;
}
