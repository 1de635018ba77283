// Events on the node's message bus, for kolt. They are rare, and the bus may be gone or hang: each is sent by a child
// process, so that nothing here ever waits for the bus, and no connection is kept.
#pragma once

#include "bridged/node_report.h"

#include "core/ubus.h"

#include <array>
#include <cstdint>

using bus_links = std::array<uint8_t, KOLT_LINK_COUNT>; // 1: up

enum bus_message : uint8_t {
    BUS_CONFIGURE = 1, // kolt is to program its bridges anew, which changes nothing that is as it should be
    BUS_LINKS = 2,     // the state of every link, upon which kolt places clients and streams anew
};

struct bus_sender {
    uloop_fd child = {};   // the pipe on which the sending child says that it has
    int32_t child_pid = 0; // 0: none
    uloop_timeout retry = {};
    uint8_t wanted = 0; // messages that no child has been given
    uint8_t given = 0;  // and those that one is at
    bus_links links{};
    bus_links given_links{};
    const char *folder = nullptr; // null: nothing is told yet
};

// From now on what is to be told is told. Which links kolt knows to be up is kept in a file of the folder: after a
// restart it is to be told only when that is no longer so.
void bus_open(bus_sender *bus, const char *folder);

void bus_forget(const char *folder);

// Whether kolt has been told exactly this of the links, by this process or by the one before.
[[nodiscard]] bool bus_has_told(const bus_sender &bus, const node_report &report);

// Tells kolt so many bus_messages. What could not be sent is tried again every second, and only the latest state is
// sent then.
void bus_tell(bus_sender *bus, const node_report &report, uint8_t messages);

// Ends what is being sent.
void bus_stop(bus_sender *bus);
