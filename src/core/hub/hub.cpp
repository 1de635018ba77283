// Building the hub and taking it down, in the order that its parts need.
#include "core/hub/hub.h"

#include "core/hub/bus_connection.h"
#include "core/hub/netlink_sockets.h"
#include "core/hub/stop_signals.h"
#include "core/log.h"

#include <csignal>
#include <initializer_list>
#include <unistd.h>

void event_init(kolt_event_ctx *ev) {
    *ev = kolt_event_ctx{};
    kolt_list_init(&ev->subscribers);
    // Where there is no loop, connecting to the bus makes one, and so takes the stop signals away from who holds them.
    // When it cannot either, that is fatal.
    if (uloop_init() != 0)
        (void)uloop_init();
    event_hold_stop_signals();
    (void)signal(SIGPIPE, SIG_IGN);
    event_ubus_init(ev);
    event_bridge_init(ev);
    event_wifi_init(ev);
    event_neighbor_init(ev);
}

int event_loop(kolt_event_ctx *ev) {
    event_run_cb(ev, KOLT_EVENT_START, nullptr);
    event_release_stop_signals();
    return uloop_run();
}

void event_free(kolt_event_ctx *ev) {
    event_ubus_free();
    // The link-notification watcher stays: uloop_done forgets it and the process's end closes it.
    for (uloop_fd *watcher : {&ev->bridge_fd, &ev->neigh_fd}) {
        (void)uloop_fd_delete(watcher);
        if (watcher->fd >= 0 && close(watcher->fd) != 0)
            KOLT_ERROR("close");
    }
    event_return_stop_signals();
    uloop_done();
}
