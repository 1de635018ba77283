// Connecting, subscribing and letting go.
#include "core/hub/bus_connection.h"

#include "core/hub/ubus_events.h"
#include "core/log.h"

namespace {

ubus_context *connection; // one a process

} // namespace

void event_ubus_init(kolt_event_ctx *ev) {
    connection = ubus_connect(nullptr);
    if (connection == nullptr)
        KOLT_FATAL("ubus_connect");
    ev->ubus_handler = ubus_event_handler{};
    ev->ubus_handler.cb = event_ubus_receive_cb;
    const int result = ubus_register_event_handler(connection, &ev->ubus_handler, "kolt.*");
    if (result != 0)
        KOLT_FATAL("ubus_register_event_handler: %s", ubus_strerror(result));
    ubus_add_uloop(connection);
}

void event_ubus_free() {
    ubus_free(connection);
    connection = nullptr;
}
