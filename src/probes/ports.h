// Which bridges there are, and which ports they have now.
#pragma once

#include "core/config.h"
#include "core/interface_list.h"

#include <cstdint>

// What the kernel side of the bridge is addressed by, in queries and for its events.
constexpr int KOLT_BRIDGE_PROTOCOL = 38;

// 1 when the kernel knows the bridge, else 0; a null or empty name is no bridge.
int kolt_check_active_bridge(const char *bridge);

// Whether a bridge is active and configured for loop avoidance; asks the kernel first.
[[nodiscard]] bool kolt_is_loop_avoiding(const config_bridge &bridge);

// Stores the configured interfaces among the bridge's ports, in the bridge's order, into `ports` and returns how many;
// none, after a message, on failure. The records stay the configuration's.
uint32_t kolt_get_active_ports(config *config, const char *bridge, kolt_port_list *ports);

// The same for the active ports that are backhaul paths.
uint32_t kolt_get_path_ports(config *config, const char *bridge, kolt_port_list *ports);
