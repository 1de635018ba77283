// Every event goes to every subscriber; which kinds it cares for is its own business.
#include "core/hub/dispatch.h"

#include "core/config.h"
#include "core/container_of.h"
#include "core/module.h"

kolt_event_ctx *l_ev;

config *event_config(kolt_event_ctx *ev) {
    return KOLT_CONTAINER_OF(ev, config, ev);
}

void event_run_cb(kolt_event_ctx *ev, kolt_event_kind kind, kolt_event *event) {
    for (kolt_list *link = ev->subscribers.next; link != &ev->subscribers; link = link->next)
        kolt_module_of_sub(link)->event_cb(event_config(ev), link, kind, event);
}
