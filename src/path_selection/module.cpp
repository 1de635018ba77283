// What the module does about each event, and when its periods begin.
#include "path_selection/module.h"

#include "adaptors/flow_cache.h"
#include "core/container_of.h"
#include "core/log.h"
#include "core/names.h"
#include "path_selection/context.h"
#include "path_selection/period.h"
#include "path_selection/tables.h"
#include "probes/ports.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace {

constexpr uint32_t NEIGHBOUR_FLOW_REPORT = 4;

// The records of the clients stand behind it in the same allocation, so that they stay untouched, and take no memory,
// until there are clients.
struct path_selection_module {
    kolt_module module;
    uloop_timeout timer{};
    ps_workspace workspace;
};
static_assert(alignof(path_selection_module) >= alignof(kolt_client));

path_selection_module *whole_of(kolt_module *module) {
    return KOLT_CONTAINER_OF(module, path_selection_module, module);
}

// What a neighbour message of the flow report type carries, host order, without padding.
struct [[gnu::packed]] flow_report {
    uint8_t src_mac[KOLT_MAC_SIZE];
    uint8_t dst_mac[KOLT_MAC_SIZE];
    uint16_t src_port;
    uint16_t dst_port;
    uint32_t protocol;
    uint8_t type;
};
static_assert(sizeof(flow_report) == 21);

void arm_timer(uloop_timeout *timer, const config &config) {
    // The library counts in int; a longer period than it can count is cut, not wrapped into the past.
    const uint32_t period = std::min<uint32_t>(config.param.period, INT_MAX);
    (void)uloop_timeout_set(timer, static_cast<int>(period)); // fails only for what is no timer
}

void arm_first_period(config *config) {
    kolt_module *module = kolt_get_mod_contex(&config->modules, KOLT_MODULE_PATH_SELECTION);
    if (module == nullptr) {
        KOLT_ERROR_AS("path_selection_event_cb", "find mod");
        return;
    }
    arm_timer(&whole_of(module)->timer, *config);
}

using link_states = std::array<uint32_t, KOLT_LINK_COUNT>;

// The link that HD entries are to point at: power line before Wi-Fi, and of Wi-Fi the fastest. Ethernet never is.
kolt_link_type choose_link(const link_states &states) {
    for (const kolt_link_type link : {KOLT_LINK_PLC, KOLT_LINK_5G_2, KOLT_LINK_5G, KOLT_LINK_2G}) {
        if (states[link] == 1)
            return link;
    }
    return PATH_NONE;
}

void follow_link_states(config *config) {
    const kolt_event_ctx &hub = config->ev;
    const link_states states = {0, hub.plc_state, hub.wifi_2g_state, hub.wifi_5g_state, hub.wifi_5g_2_state};
    const kolt_link_type link = choose_link(states);
    if (link != PATH_NONE)
        path_selection_update_table(config, TABLE_HD, states, link);
    else
        path_selection_flush_table(config, TABLE_HD);
    path_selection_flush_table(config, TABLE_HA);
    (void)kolt_flush_all_fcache_flow(); // without a flow cache there is nothing to flush
}

// Drops the cached flow of the direction opposite to the one that a neighbour reports.
void flush_reported_flow(const kolt_event &event) {
    flow_report report;
    if (event.len < sizeof report)
        return;
    memcpy(&report, event.data, sizeof report);
    kolt_fc_flow_key key;
    memcpy(key.src_mac, report.dst_mac, sizeof key.src_mac);
    memcpy(key.dst_mac, report.src_mac, sizeof key.dst_mac);
    key.src_port = report.dst_port;
    key.dst_port = report.src_port;
    key.protocol = report.protocol;
    KOLT_INFO_AS("path_selection_event_cb",
                 "sa: %02X:%02X:%02X:%02X:%02X:%02X, da:%02X:%02X:%02X:%02X:%02X:%02X, src_port: %d, dst_port:%d, "
                 "protocol:%d, type:%d",
                 KOLT_MAC_OCTETS(report.src_mac), KOLT_MAC_OCTETS(report.dst_mac), report.src_port, report.dst_port,
                 static_cast<int>(report.protocol), report.type);
    kolt_flush_fc_flow_by_ha(&key, report.type);
}

void begin_context(config *config) {
    path_selection_ctx.hd_sample_index = 0;
    path_selection_ctx.hd_sample_ring.fill(PATH_NONE);
    for (ps_path_history &history : path_selection_ctx.histories)
        history.history_mark = 1;
    path_selection_ctx.configuration = config;
}

} // namespace

kolt_module *path_selection_init(config *config) {
    void *memory = calloc(1, sizeof(path_selection_module) + KOLT_MAX_CLIENTS * sizeof(kolt_client));
    if (memory == nullptr) {
        KOLT_ERROR("malloc");
        return nullptr;
    }
    begin_context(config);
    auto *whole = new (memory) path_selection_module;
    kolt_module *module = &whole->module;
    module->name = "Path Selection";
    module->id = KOLT_MODULE_PATH_SELECTION;
    kolt_list_init(&module->list);
    module->free = path_selection_free;
    kolt_list_init(&module->sub);
    module->event_cb = path_selection_event_cb;
    kolt_list_add(&config->ev.subscribers, &module->sub);
    whole->timer.cb = path_selection_timer_cb;
    whole->workspace.clients = reinterpret_cast<kolt_client *>(whole + 1);
    path_selection_show_path_ports(config);
    return module;
}

void path_selection_free(kolt_module *module) {
    path_selection_module *whole = whole_of(module);
    kolt_list_delete(&module->sub);
    (void)uloop_timeout_cancel(&whole->timer); // -1 when it is not armed
    std::destroy_at(whole);
    free(whole);
}

void path_selection_show_path_ports(config *config) {
    for (uint32_t i = 0; i < config->bridge_num; i++) {
        const config_bridge &bridge = config->bridges[i];
        const kolt_name_text name(bridge.name);
        if (kolt_check_active_bridge(name.text) == 0 || (bridge.flags & CONFIG_PATH_SELECTION) == 0)
            continue;
        kolt_port_list ports;
        (void)kolt_get_path_ports(config, name.text, &ports); // none after a failure, which it logs
        for (const config_interface *port : ports.span())
            KOLT_DEBUG("path_port: %.16s", port->name);
    }
}

void path_selection_event_cb(config *config, kolt_list * /*sub*/, kolt_event_kind kind, kolt_event *event) {
    switch (kind) {
    case KOLT_EVENT_START:
        return arm_first_period(config);
    case KOLT_EVENT_LINK_STATE:
        return follow_link_states(config);
    case KOLT_EVENT_NEIGHBOUR:
        if (event->type == NEIGHBOUR_FLOW_REPORT)
            flush_reported_flow(*event);
        return;
    default:
        return;
    }
}

void path_selection_timer_cb(uloop_timeout *timer) {
    config *config = path_selection_ctx.configuration;
    path_selection_run_period(config, &KOLT_CONTAINER_OF(timer, path_selection_module, timer)->workspace);
    arm_timer(timer, *config);
}
