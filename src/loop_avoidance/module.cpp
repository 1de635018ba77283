// What the module does about each event.
#include "loop_avoidance/module.h"

#include "adaptors/flow_cache.h"
#include "core/log.h"
#include "core/names.h"
#include "core/pause.h"
#include "loop_avoidance/broadcast.h"
#include "loop_avoidance/configure.h"
#include "loop_avoidance/wds.h"
#include "probes/table_flush.h"

#include <cstdlib>
#include <duon_bridge.h>
#include <new>

namespace {

constexpr char CALLBACK[] = "loop_avoidance_event_cb";

enum bridge_event : uint32_t { BRIDGE_EVENT_STATION = 5, BRIDGE_EVENT_RECONFIGURE = 6, BRIDGE_EVENT_RECONFIGURE_2 = 7 };

void flush(config *config) {
    loop_avoidance_flush_ha_table(config);
    (void)kolt_flush_all_fcache_flow(); // without a flow cache there is nothing to flush
}

void configure(config *config, kolt_work_mode mode) {
    if (mode == KOLT_MODE_UNKNOWN)
        return loop_avoidance_reconfigure(config);
    loop_avoidance_configure_bridge_with_mode(config, mode);
}

void apply_link_state(config *config) {
    loop_avoidance_set_bcast_port(config);
    kolt_pause_one_second(); // the bridge settles before what it learnt is flushed
    flush(config);
}

void reconfigure_and_flush(config *config) {
    loop_avoidance_reconfigure(config);
    flush(config);
}

void follow_bridge_event(config *config, const kolt_event &event) {
    if (event.type == BRIDGE_EVENT_STATION && event.len >= LOOP_AVOIDANCE_STATION_EVENT_SIZE) {
        loop_avoidance_delete_wds_entry(config, event.data);
        KOLT_DEBUG_AS(CALLBACK, "flush fc flow by mac: %02X:%02X:%02X:%02X:%02X:%02X", KOLT_MAC_OCTETS(event.data));
        (void)kolt_flush_fc_flow_by_mac(event.data, 0); // without a flow cache there is nothing to flush
    }
    if (event.type == BRIDGE_EVENT_RECONFIGURE || event.type == BRIDGE_EVENT_RECONFIGURE_2)
        reconfigure_and_flush(config);
}

} // namespace

kolt_module *loop_avoidance_init(config *config) {
    void *memory = calloc(1, sizeof(kolt_module));
    if (memory == nullptr) {
        KOLT_ERROR("malloc");
        return nullptr;
    }
    auto *module = new (memory) kolt_module{};
    kolt_list_init(&module->list);
    module->name = "Loop avoidance";
    module->id = KOLT_MODULE_LOOP_AVOIDANCE;
    module->free = loop_avoidance_free;
    kolt_list_init(&module->sub);
    module->event_cb = loop_avoidance_event_cb;
    kolt_list_add(&config->ev.subscribers, &module->sub);
    return module;
}

void loop_avoidance_free(kolt_module *module) {
    kolt_list_delete(&module->sub);
    free(module);
}

void loop_avoidance_flush_ha_table(config *config) {
    kolt_flush_tables(*config, bridgeFlushHATable, {__func__, __LINE__, "bridgeFlushHATable"});
}

void loop_avoidance_event_cb(config *config, kolt_list * /*sub*/, kolt_event_kind kind, kolt_event *event) {
    switch (kind) {
    case KOLT_EVENT_START:
        return loop_avoidance_reconfigure(config);
    case KOLT_EVENT_CONFIGURE:
        return configure(config, static_cast<kolt_work_mode>(event->type));
    case KOLT_EVENT_LINK_STATE:
        if (event->type == 1) {
            KOLT_INFO("reconfig bridge");
            loop_avoidance_reconfigure(config);
        }
        return apply_link_state(config);
    case KOLT_EVENT_BRIDGE:
        follow_bridge_event(config, *event);
        return;
    case KOLT_EVENT_DEBUG:
        log_level = static_cast<int32_t>(event->type);
        return;
    default:
        return;
    }
}
