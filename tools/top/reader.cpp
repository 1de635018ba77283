// One walk over the bridges, in the order of a period, without what a period does.
#include "reader.h"

#include "read_clients.h"
#include "read_paths.h"

#include "core/config_load.h"
#include "core/log.h"
#include "loop_avoidance/relay_flags.h"
#include "path_selection/context.h"
#include "probes/node_state.h"
#include "probes/ports.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <new>

namespace {

constexpr uint64_t US_PER_S = 1000000;
constexpr uint64_t LONGEST_MEASURED_US = 5 * US_PER_S;

uint64_t now_us() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail with this clock
    return static_cast<uint64_t>(now.tv_sec) * US_PER_S + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

// What the configuration says of a bridge; everything else is empty.
void begin_bridge(top_bridge *bridge, const config_bridge &configured) {
    *bridge = top_bridge{};
    memcpy(bridge->name, kolt_name_text(configured.name).text, sizeof bridge->name);
    bridge->avoids_loops = (configured.flags & CONFIG_LOOP_AVOIDANCE) != 0;
    bridge->selects_paths = (configured.flags & CONFIG_PATH_SELECTION) != 0;
}

// Records that are as good as new; null without memory.
kolt_client *fresh_clients(top_reader *reader, uint32_t number) {
    kolt_client *&clients = reader->clients[number];
    if (clients == nullptr)
        clients = static_cast<kolt_client *>(calloc(KOLT_MAX_CLIENTS, sizeof(kolt_client)));
    else
        std::fill_n(clients, KOLT_MAX_CLIENTS, kolt_client{});
    return clients;
}

void read_bridge(top_reader *reader, uint32_t number, top_moment moment) {
    top_bridge &bridge = reader->node.bridges[number];
    bridge.active = kolt_check_active_bridge(bridge.name) == 1;
    bridge.clients.clients = fresh_clients(reader, number);
    if (!bridge.active || bridge.clients.clients == nullptr)
        return;
    (void)kolt_get_active_ports(&reader->configuration, bridge.name, &bridge.ports); // a failure is a note
    if (bridge.avoids_loops)
        loop_avoidance_set_relay_flags(bridge.ports.span(), reader->node.mode);
    top_read_paths(reader, number, moment);
    top_read_clients(reader, number);
}

// The drivers are asked as often as the daemon asks them, and at least every five seconds: each question is a child. A
// sample is kept once a period; a measuring in between is a look at what the next one would come to.
top_moment moment_of(top_reader *reader, uint64_t now) {
    const uint64_t period = uint64_t{reader->configuration.param.period} * 1000;
    top_moment moment{.now_us = now, .measured = now >= reader->next_measuring_us, .sampled = false};
    if (!moment.measured)
        return moment;
    moment.sampled = now >= reader->next_sample_us;
    if (moment.sampled)
        reader->next_sample_us = now + period;
    reader->next_measuring_us = now + std::min(period, LONGEST_MEASURED_US);
    return moment;
}

} // namespace

top_reader *top_make_reader() {
    void *memory = calloc(1, sizeof(top_reader));
    return memory != nullptr ? new (memory) top_reader : nullptr;
}

void top_free_reader(top_reader *reader) {
    for (kolt_client *clients : reader->clients)
        free(clients);
    std::destroy_at(reader);
    free(reader);
}

void top_load(top_reader *reader, const char *path) {
    log_level = KOLT_LOG_QUIET;
    top_blame(path);
    config_load(&reader->configuration, path);
    path_selection_ctx.configuration = &reader->configuration;
    reader->node.configuration = &reader->configuration;
}

void top_read(top_reader *reader) {
    const uint64_t began = now_us();
    top_node &node = reader->node;
    node.seconds = time(nullptr);
    node.mode = kolt_get_work_mode();
    node.bridge_count = reader->configuration.bridge_num;
    reader->counters.read();
    const top_moment moment = moment_of(reader, began);
    for (uint32_t i = 0; i < node.bridge_count; i++) {
        begin_bridge(&node.bridges[i], reader->configuration.bridges[i]);
        read_bridge(reader, i, moment);
    }
    node.notes = top_take_notes();
    node.read_us = static_cast<uint32_t>(now_us() - began);
}
