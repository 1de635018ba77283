#include "core/log.h"
#include "path_selection/interface_cache.h"
#include "path_selection/module_parts.h"
#include "probes/bridge_tables.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace {

constexpr uint32_t HIGH_DATA_RATE = 3000000; // bytes a period

void log_ring() {
    if (log_level < KOLT_LOG_DUMP)
        return;
    char text[PS_HD_SAMPLES * sizeof "-2147483648, "];
    size_t length = 0;
    for (size_t i = 0; i < PS_HD_SAMPLES; i++)
        length += static_cast<size_t>(snprintf(text + length, sizeof text - length, "%s%d", i == 0 ? "" : ", ",
                                               path_selection_ctx.hd_sample_ring[i]));
    KOLT_DUMP_AS("path_selection_find_hd_port", "hd samples: %s", text);
}

void record_choice(uint32_t type) {
    path_selection_context &ctx = path_selection_ctx;
    ctx.hd_sample_ring[ctx.hd_sample_index] = static_cast<int32_t>(type);
    ctx.hd_sample_index = static_cast<uint8_t>((ctx.hd_sample_index + 1U) % PS_HD_SAMPLES);
    log_ring();
}

// The type with the most entries before the first empty one; the higher type among equals, so the highest without any.
uint32_t majority_choice(const int32_t (&ring)[PS_HD_SAMPLES]) {
    uint32_t counts[KOLT_LINK_COUNT] = {};
    for (const int32_t type : ring) {
        if (type < 0 || type >= static_cast<int32_t>(KOLT_LINK_COUNT))
            break;
        counts[type]++;
    }
    uint32_t best = 0;
    uint32_t picked = 0;
    for (uint32_t type = 0; type < KOLT_LINK_COUNT; type++) {
        if (counts[type] >= best) {
            best = counts[type];
            picked = type;
        }
    }
    return picked;
}

} // namespace

int path_selection_is_high_data_rate() {
    for (size_t slot = 0; slot < PS_DATA_RATES; slot++) {
        uint32_t sum = 0;
        for (const ps_path_history &history : path_selection_ctx.histories)
            sum += history.data_rate[slot];
        KOLT_DUMP("data rate of sample[%d] is: %d", static_cast<int>(slot), static_cast<int>(sum));
        if (sum > HIGH_DATA_RATE)
            return 1;
    }
    return 0;
}

ps_path *path_selection_find_hd_port(ps_path_table *paths, uint32_t type, bool record) {
    if (record)
        record_choice(type);
    ps_path &picked = (*paths)[majority_choice(path_selection_ctx.hd_sample_ring)];
    return ps_is_present(picked) ? &picked : &(*paths)[type];
}

int path_selection_update_uplink_hd_table(const char *bridge, const uint8_t *bridge_mac, const kolt_client &client,
                                          const char *hd_name, const uint8_t *reference_mac,
                                          const kolt_ap_client_list *ap_clients) {
    const uint32_t target = ps_interface_index(hd_name);
    if (client.relay != 1) {
        if (client.hd_port == target)
            return 1;
        if (path_selection_ctx.configuration->param.cpu_limit != 0 && path_selection_is_high_data_rate() == 1)
            return 1;
    }
    if (client.type == KOLT_LINK_PLC && kolt_mac_equal(client.mac, reference_mac) == 0 &&
        kolt_check_mac_in_ap_client_list(ap_clients, client.mac) == 0)
        return 0;
    if (client.relay == 1)
        return 0;
    const kolt_name_text name(hd_name);
    const int result = kolt_add_hd_entry(bridge, bridge_mac, client.mac, name.text);
    KOLT_INFO("add hd client: %02X:%02X:%02X:%02X:%02X:%02X to %s %s", KOLT_MAC_OCTETS(client.mac), name.text,
              result != 0 ? "success" : "failed");
    return result;
}
