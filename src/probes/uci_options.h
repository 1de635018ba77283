// UCI options: the roles that the node's management gave to its Ethernet and power-line ports.
#pragma once

#include "core/interface_list.h"

#include <cstddef>

constexpr size_t UCI_VALUE_SIZE = 24; // of the buffer that a value is read into

// Reads the string option that `tuple` ("package.section.option", which the look-up modifies) names into `value`, a
// buffer of UCI_VALUE_SIZE bytes; a longer value is cut. 1, or 0 after a message.
int uci_get_value(char *tuple, char *value);

// 1 when the option's value equals `expected` over at most UCI_VALUE_SIZE characters, else 0.
int uci_check_value(const char *tuple, const char *expected);

// 1 when this node is the root of the power-line network, else 0.
int plc_is_root();

// 1 when Ethernet carries backhaul traffic, else 0.
int eth_traffic_is_active();

// 1 when the Ethernet port `name` has a mesh neighbour, else 0.
int kolt_check_eth_has_neigh(const char *name);

// Makes the Ethernet ports nonrelay that share a compatibility group with the port that carries backhaul traffic. 1, or
// 0 when that port is not told.
int update_eth_traffic_ports(port_span ports);
