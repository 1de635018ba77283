// A bridge's forwarding table (FDB): which MAC is behind which port.
#pragma once

#include "core/names.h"
#include "kernel/net/callback.h"
#include "kernel/net/rtnl.h"

#include <array>
#include <cstdint>
#include <span>

using fdb_mac = std::array<uint8_t, KOLT_MAC_SIZE>;

struct fdb_record {
    fdb_mac mac{};
    uint16_t vlan = 0;       // 0 where the bridge does not tell VLANs apart
    uint32_t port = 0;       // interface index; the bridge's own for an address of the bridge that is on no port
    uint32_t bridge = 0;     // interface index
    uint32_t age_ticks = 0;  // of 1/100 s since the MAC was last heard as a source; 0 for what does not age
    uint32_t idle_ticks = 0; // the same since a frame came from the MAC or was sent to it; of what does not age too
    bool is_local = false;   // an address of the bridge or of a port: frames to it are this node's
    bool is_static = false;  // does not age
    bool sticky = false;     // does not move when the MAC is heard elsewhere
    bool external = false;   // set by somebody who learns in the bridge's place, a switch chip for instance
    bool removed = false;    // told by the monitor: the entry is gone
};

// One MAC and the port where it is to be, or is no longer to be.
struct fdb_place {
    fdb_mac mac{};
    uint32_t port = 0;
};

// `number` counts the places from 0.
using fdb_failure = callback_ref<void(size_t number, const rtnl_error &error)>;

// Hands out a bridge's table.
[[nodiscard]] int fdb_dump(rtnl_socket &rtnl, uint32_t bridge, callback_ref<void(const fdb_record &)> each);

// Looks up one MAC; ENOENT when the table does not have it, EINVAL when there is no such bridge.
[[nodiscard]] int fdb_find(rtnl_socket &rtnl, uint32_t bridge, const fdb_mac &mac, fdb_record *found);

// Makes each place a static and sticky entry of the bridge that the port is in, in place of any entry the MAC has: a
// local one too, so that frames for this node would leave it. Callers keep local addresses out. Returns 0, or the first
// error; what fails does not keep the rest from being done.
[[nodiscard]] int fdb_pin(rtnl_socket &rtnl, std::span<const fdb_place> places, fdb_failure failed = {});

// Removes each place's entry, one by one, static or not. Returns as fdb_pin does, with ENOENT for those not there.
[[nodiscard]] int fdb_remove(rtnl_socket &rtnl, std::span<const fdb_place> places, fdb_failure failed = {});

// Reads a message of the kernel; false when it is not about an entry of a bridge's table.
bool fdb_parse(const nlmsghdr &message, fdb_record *record);
