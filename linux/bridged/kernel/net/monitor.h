// Changes of interfaces, bridge ports and forwarding tables, as the kernel tells them.
#pragma once

#include "core/handle.h"
#include "kernel/net/bridge_ports.h"
#include "kernel/net/callback.h"
#include "kernel/net/fdb.h"
#include "kernel/net/links.h"

#include <cstddef>
#include <span>

// Those that are not set are not told.
struct monitor_callbacks {
    callback_ref<void(const link_info &)> link;   // new, changed (also its master) or deleted
    callback_ref<void(const bridge_port &)> port; // its flags or state changed, or it left its bridge
    callback_ref<void(const fdb_record &)> fdb;   // a MAC was learnt, moved, set, or removed; also by this process
};

// Hands out what a datagram of the kernel says; it must stand as a message does.
void monitor_tell(std::span<const std::byte> datagram, const monitor_callbacks &callbacks);

class kernel_monitor {
public:
    // Starts listening. What changes from here on is told, so that a dump made after it misses nothing.
    [[nodiscard]] int open();

    // Readable when there are changes, for the event loop. Level-triggered: receive leaves some for the next turn when
    // there are very many. An overrun counts as an error of the descriptor, for which event loops stop watching it.
    [[nodiscard]] int fd() const {
        return fd_.get();
    }

    // Hands out what has changed, without waiting. Returns 0; ENOBUFS when the kernel had more to tell than it could
    // keep: dump everything again, go on watching. What it had kept is gone then, for all of that is older than what
    // was lost. Any other errno when the socket is of no use any more.
    [[nodiscard]] int receive(const monitor_callbacks &callbacks);

private:
    unique_fd fd_;
};
