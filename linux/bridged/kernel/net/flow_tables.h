// The flow tables of the packet filter: they hand established flows from interface to interface past the bridge.
#pragma once

#include "kernel/net/rtnl.h"

#include <array>
#include <cstdint>
#include <linux/netlink.h>
#include <string_view>

struct flow_table_use {
    bool found = false;
    bool hardware = false; // the interface's hardware does it
    std::array<char, 32> name{};
};

// Finds a flow table that names the interface, in hardware rather than not. Returns 0 or an errno; 0 and nothing found
// on kernels without a packet filter that has flow tables.
[[nodiscard]] int flow_table_find(const char *ifname, flow_table_use *use);

// Reads a message of the packet filter; false when it is not about a flow table that names the interface.
bool flow_table_parse(const nlmsghdr &message, std::string_view ifname, flow_table_use *use);
