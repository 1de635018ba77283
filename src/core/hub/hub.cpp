#include "core/hub/hub.h"

#include "core/config.h"
#include "core/hub/netlink_sockets.h"
#include "core/hub/ubus_events.h"
#include "core/log.h"
#include "core/module.h"

#include <csignal>
#include <cstddef>
#include <initializer_list>
#include <unistd.h>

kolt_event_ctx *l_ev;

namespace {

// The loop forgets, when it starts to run, that a signal ended it before. So the signals that end the daemon are held
// back until the loop runs: a stop during the start counts, as soon as the start is done.
uloop_timeout release_signals_timer;

void set_stop_signals(int how) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    (void)sigprocmask(how, &signals, nullptr); // cannot fail with these arguments
}

void release_stop_signals(uloop_timeout * /*timer*/) {
    set_stop_signals(SIG_UNBLOCK);
}

} // namespace

config *event_config(kolt_event_ctx *ev) {
    return reinterpret_cast<config *>(reinterpret_cast<char *>(ev) - offsetof(config, ev));
}

void event_init(kolt_event_ctx *ev) {
    *ev = kolt_event_ctx{};
    kolt_list_init(&ev->subscribers);
    (void)uloop_init(); // without a loop the first watcher cannot be added, and that is fatal
    set_stop_signals(SIG_BLOCK);
    (void)signal(SIGPIPE, SIG_IGN);
    event_ubus_init(ev);
    event_bridge_init(ev);
    event_wifi_init(ev);
    event_neighbor_init(ev);
}

int event_loop(kolt_event_ctx *ev) {
    event_run_cb(ev, KOLT_EVENT_START, nullptr);
    release_signals_timer.cb = release_stop_signals;
    (void)uloop_timeout_set(&release_signals_timer, 0);
    return uloop_run();
}

void event_run_cb(kolt_event_ctx *ev, kolt_event_kind kind, kolt_event *event) {
    for (kolt_list *link = ev->subscribers.next; link != &ev->subscribers; link = link->next)
        kolt_module_of_sub(link)->event_cb(event_config(ev), link, kind, event);
}

void event_free(kolt_event_ctx *ev) {
    event_ubus_free();
    // The link-notification watcher stays: uloop_done forgets it and the process's end closes it.
    for (uloop_fd *watcher : {&ev->bridge_fd, &ev->neigh_fd}) {
        (void)uloop_fd_delete(watcher);
        if (watcher->fd >= 0 && close(watcher->fd) != 0)
            KOLT_ERROR("close");
    }
    uloop_done();
}
