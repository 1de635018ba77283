// The library would end the loop, or leave it deaf, when the bus goes away, according to what it is doing at that
// moment; so the hub has a handler of its own for that.
#include "core/hub/bus_connection.h"

#include "core/hub/stop_signals.h"
#include "core/hub/ubus_events.h"
#include "core/log.h"

namespace {

constexpr int RETRY_MS = 1000;

// One connection a process.
struct {
    kolt_event_ctx *ev = nullptr;
    ubus_context *context = nullptr;
    bool attempting = false; // to connect anew: a connection that breaks meanwhile is a failed attempt, no loss
    uloop_timeout retry{};   // armed while the connection is lost
} bus;

[[nodiscard]] int subscribe() {
    bus.ev->ubus_handler = ubus_event_handler{};
    bus.ev->ubus_handler.cb = event_ubus_receive_cb;
    return ubus_register_event_handler(bus.context, &bus.ev->ubus_handler, "kolt.*");
}

// The library is still at work on the connection when it calls this, so it is released later.
void event_ubus_connection_lost(ubus_context *context) {
    (void)uloop_fd_delete(&context->sock); // out of the loop already where the library was idle
    if (bus.attempting || bus.retry.pending)
        return;
    KOLT_ERROR("ubus connection lost");
    (void)uloop_timeout_set(&bus.retry, RETRY_MS); // fails only for what is no timer
}

// False when the loop did not take the connection, which nobody would hear from then.
[[nodiscard]] bool serve_connection() {
    bus.context->connection_lost = event_ubus_connection_lost;
    ubus_add_uloop(bus.context);
    return bus.context->sock.registered;
}

void release_connection() {
    if (bus.context != nullptr)
        ubus_free(bus.context);
    bus.context = nullptr;
}

// One attempt to connect and subscribe. The connection is in the loop before it subscribes, so that the loop delivers
// what the bus sends at once, and not the library while it still waits.
[[nodiscard]] bool attempt() {
    const bus_wait wait = bus_wait::at_most_200_ms(); // one that hangs must not stall the loop
    bus.context = ubus_connect(nullptr);
    if (bus.context == nullptr)
        return false;
    if (!serve_connection())
        return false;
    wait.watch(bus.context->sock.fd);
    const int result = subscribe();
    wait.watch(-1);
    return result == 0 && bus.context->sock.registered;
}

void event_ubus_reconnect(uloop_timeout *retry) {
    release_connection();
    bus.attempting = true;
    const bool connected = attempt();
    bus.attempting = false;
    if (connected) {
        KOLT_INFO("ubus connected");
        return;
    }
    release_connection();
    (void)uloop_timeout_set(retry, RETRY_MS); // fails only for what is no timer
}

// Connects and subscribes for the first time, however long it takes; the result of subscribing, with a connection.
[[nodiscard]] int connect_at_start() {
    const bus_wait wait = bus_wait::until_stopped();
    bus.context = ubus_connect(nullptr);
    if (bus.context == nullptr)
        return UBUS_STATUS_CONNECTION_FAILED;
    wait.watch(bus.context->sock.fd);
    return subscribe();
}

} // namespace

void event_ubus_init(kolt_event_ctx *ev) {
    bus.ev = ev;
    bus.retry.cb = event_ubus_reconnect;
    const int result = connect_at_start();
    if (bus.context == nullptr)
        KOLT_FATAL("ubus_connect");
    if (result != 0)
        KOLT_FATAL("ubus_register_event_handler: %s", ubus_strerror(result));
    if (!serve_connection())
        event_ubus_connection_lost(bus.context);
}

void event_ubus_free() {
    (void)uloop_timeout_cancel(&bus.retry); // -1 when there is nothing to try for
    release_connection();
}
