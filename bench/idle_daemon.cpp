// idle-daemon: what any daemon on these libraries costs before it does anything. It starts up as kolt does - log,
// configuration, settings, message bus, event loop - registers its process with the bridge, and then only waits. The
// benchmark sets kolt's figures against it.
#include "core/ubus.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <duon_bridge.h>
#include <eth_encap.h>
#include <iterator>
#include <json-c/json.h>
#include <syslog.h>
#include <uci.h>
#include <unistd.h>

namespace {

constexpr char CONFIGURATION[] = "/etc/kolt.json";
constexpr int BRIDGE_EVENTS = 3;
constexpr int BRIDGE_EVENT_PROTOCOL = 38;

uint32_t events;

[[noreturn]] void fail(const char *what) {
    syslog(LOG_EMERG, "%s", what);
    exit(EXIT_FAILURE);
}

void read_configuration() {
    json_object *file = json_object_from_file(CONFIGURATION);
    if (file == nullptr)
        fail("configuration");
    json_object *enable = nullptr;
    const bool enabled =
        json_object_object_get_ex(file, "enable", &enable) != 0 && json_object_get_boolean(enable) != 0;
    (void)json_object_put(file);
    if (!enabled)
        fail("disabled");
}

void read_setting() {
    char name[] = "tolmux.tolmux.TrafficPlcRoot";
    uci_context *context = uci_alloc_context();
    uci_ptr found{};
    if (context == nullptr || uci_lookup_ptr(context, &found, name, true) != UCI_OK)
        fail("settings");
    uci_free_context(context);
}

void register_with_bridge() {
    char names[16][16];
    if (uci_get_profile_eths(names, static_cast<int>(std::size(names))) != 0)
        fail("profile");
    if (bridgeSetEventInfo("br-lan", getpid(), BRIDGE_EVENTS, BRIDGE_EVENT_PROTOCOL) < 0)
        fail("bridge");
}

void count_event(ubus_context * /*context*/, ubus_event_handler * /*handler*/, const char * /*type*/,
                 blob_attr * /*message*/) {
    events++;
}

} // namespace

int main(int /*argc*/, char **argv) {
    openlog(argv[0], LOG_CONS | LOG_PERROR, LOG_DAEMON);
    read_configuration();
    read_setting();
    (void)uloop_init(); // without a loop the connection cannot be watched, and no event arrives
    ubus_context *bus = ubus_connect(nullptr);
    if (bus == nullptr)
        fail("bus");
    ubus_event_handler handler{};
    handler.cb = count_event;
    if (ubus_register_event_handler(bus, &handler, "kolt.*") != 0)
        fail("event handler");
    ubus_add_uloop(bus);
    register_with_bridge();
    (void)uloop_run(); // ended by a signal, which is how a daemon is ended
    (void)printf("%u\n", events);
    ubus_free(bus);
    uloop_done();
    return EXIT_SUCCESS;
}
