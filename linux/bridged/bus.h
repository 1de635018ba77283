// Events on the node's message bus, for kolt. They are rare, and the bus may be gone or hang: each is sent by a child
// process, so that nothing here ever waits for the bus, and no connection is kept.
#pragma once

#include "bridged/node_report.h"

#include "core/ubus.h"

struct bus_sender {
    uloop_fd child = {};   // the pipe on which the sending child says that it has
    int32_t child_pid = 0; // 0: none
    uloop_timeout retry = {};
    bool pending = false;         // something is to be told that no child has told yet
    bool wants_configure = false; // that kolt is to program the bridge anew
    bool configure_again = false; // asked for while a child is at it
    uint8_t links[KOLT_LINK_COUNT] = {};
};

// Tells kolt the state of every link; `configure` also asks it to program its bridges anew. What could not be sent is
// tried again every second, and only the latest state is sent then.
void bus_tell(bus_sender *bus, const node_report &report, bool configure);

// Ends what is being sent.
void bus_stop(bus_sender *bus);
