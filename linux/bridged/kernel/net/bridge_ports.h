// Bridges and their ports: what they are set to, and setting it.
#pragma once

#include "kernel/net/callback.h"
#include "kernel/net/rtnl.h"

#include <cstdint>

// How far a port takes part in IGMP and MLD snooping as the way to a multicast router.
enum bridge_mcast_router : uint8_t {
    MCAST_ROUTER_NEVER = 0,
    MCAST_ROUTER_LEARNT = 1, // the kernel's default
    MCAST_ROUTER_ALWAYS = 2,
    MCAST_ROUTER_TEMPORARY = 3,
};

// What decides which frames the bridge sends out of a port that no entry points to. The defaults are the kernel's.
struct bridge_port_flags {
    bool learning = true;
    bool flood = true; // of unicast for unknown addresses
    bool mcast_flood = true;
    bool bcast_flood = true;
    bridge_mcast_router mcast_router = MCAST_ROUTER_LEARNT;

    bool operator==(const bridge_port_flags &) const = default;
};

struct bridge_port {
    uint32_t index = 0;
    uint32_t bridge = 0; // told by the monitor: 0 when the port has left its bridge
    uint16_t number = 0; // among the bridge's ports
    uint8_t state = 0;   // BR_STATE_* of linux/if_bridge.h
    bridge_port_flags flags;
    bool hairpin = false;        // sends frames back out of the port that they came in by
    bool isolated = false;       // exchanges nothing with other isolated ports
    bool locked = false;         // takes frames only from sources that it was told of
    uint16_t group_fwd_mask = 0; // bit n: forwards 01:80:c2:00:00:0n, which bridges keep to a link
};

struct bridge_settings {
    uint32_t index = 0;
    uint32_t stp = 0; // 0 none, 1 the kernel's, 2 a daemon's
    bool vlan_filtering = false;
    bool mcast_snooping = false;
    uint16_t group_fwd_mask = 0;
    uint64_t ageing_ticks = 0; // of 1/100 s
};

// What a bridge is set to; ENODEV when there is no such interface, EOPNOTSUPP when it is no bridge.
[[nodiscard]] int bridge_get(rtnl_socket &rtnl, uint32_t bridge, bridge_settings *settings);

// Hands out the ports of a bridge, or of all bridges when it is 0. EINTR: ask again, as rtnl_socket::dump says.
[[nodiscard]] int bridge_ports_dump(rtnl_socket &rtnl, uint32_t bridge, callback_ref<void(const bridge_port &)> each);

// Describes one port; ENODEV when there is no such interface, EOPNOTSUPP when it is not the port of a bridge.
[[nodiscard]] int bridge_port_get(rtnl_socket &rtnl, uint32_t port, bridge_port *described);

// Sets all of the flags in one step; errors as of bridge_port_get.
[[nodiscard]] int bridge_port_set(rtnl_socket &rtnl, uint32_t port, const bridge_port_flags &flags);

// Has the port take no part in the bridge at all, or take part again; ENETDOWN when the port is down and takes part
// once it comes up. The kernel opens a closed port by itself when its carrier comes, and whenever it looks at that
// anew.
[[nodiscard]] int bridge_port_set_forwarding(rtnl_socket &rtnl, uint32_t port, bool forwarding);

// Forgets what was learnt on the port, and nothing else: neither its own address nor entries that were set.
[[nodiscard]] int bridge_port_flush(rtnl_socket &rtnl, uint32_t port);

// Reads the kernel's answer about a bridge, all but its index; false when it is about something else.
bool bridge_parse(const nlmsghdr &message, bridge_settings *settings);

// Reads a message of the kernel; false when it is not about a port of a bridge.
bool bridge_port_parse(const nlmsghdr &message, bridge_port *port);
