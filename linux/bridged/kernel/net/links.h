// The network interfaces of this namespace.
#pragma once

#include "core/names.h"
#include "kernel/net/callback.h"
#include "kernel/net/rtnl.h"

#include <array>
#include <cstdint>

// An interface as the kernel describes it, whole each time.
struct link_info {
    uint32_t index = 0;
    uint32_t master = 0; // the bridge that it is a port of, or another device above it; 0 for none
    std::array<char, KOLT_NAME_SIZE> name{};
    std::array<uint8_t, KOLT_MAC_SIZE> mac{};
    uint32_t mtu = 0;
    uint16_t group_fwd_mask = 0; // as of bridge_port, when it is the port of a bridge
    uint8_t operstate = 0;       // IF_OPER_*
    bool up = false;             // by its administrator
    bool carrier = false;        // something is connected
    bool ethernet = false;       // and has a MAC
    bool is_bridge = false;      // is a bridge itself
    bool switch_port = false;    // is a port of a switch chip that forwards between its ports by itself
    bool deleted = false;        // told by the monitor: it is gone; only index and name count
};

// Whether frames get through: up, with carrier, and not held back (an authentication that has not ended, for instance).
[[nodiscard]] bool link_works(const link_info &link);

// Hands out every interface. EINTR: ask again, as rtnl_socket::dump says.
[[nodiscard]] int links_dump(rtnl_socket &rtnl, callback_ref<void(const link_info &)> each);

// Describes one interface; ENODEV when there is none.
[[nodiscard]] int link_get(rtnl_socket &rtnl, uint32_t index, link_info *link);
[[nodiscard]] int link_find(rtnl_socket &rtnl, const char *name, link_info *link);

// Reads a message of the kernel; false when it is not about an interface as such.
bool link_parse(const nlmsghdr &message, link_info *link);
