// With "cpu_limit" the HD path is what was chosen most often lately, and a busy node moves no client at all.
#include "path_selection/hd_placement.h"

#include "core/log.h"
#include "path_selection/context.h"
#include "path_selection/decide/majority.h"
#include "path_selection/number_list.h"
#include "probes/bridge_tables.h"

namespace {

constexpr uint32_t HIGH_DATA_RATE = 3000000; // bytes a period

void record_choice(kolt_link_type type) {
    path_selection_context &ctx = path_selection_ctx;
    ctx.hd_sample_ring[ctx.hd_sample_index] = static_cast<int32_t>(type);
    ctx.hd_sample_index = static_cast<uint8_t>((ctx.hd_sample_index + 1U) % PS_HD_SAMPLES);
}

} // namespace

int path_selection_is_high_data_rate() {
    for (size_t slot = 0; slot < PS_DATA_RATES; slot++) {
        const uint32_t sum = ps_moved_bytes(path_selection_ctx.histories, slot);
        KOLT_DUMP("data rate of sample[%d] is: %d", static_cast<int>(slot), static_cast<int>(sum));
        if (sum > HIGH_DATA_RATE)
            return 1;
    }
    return 0;
}

ps_path *path_selection_find_hd_port(ps_path_table *paths, kolt_link_type type, bool record) {
    const ps_hd_ring &ring = path_selection_ctx.hd_sample_ring;
    if (record) {
        record_choice(type);
        if (log_level >= KOLT_LOG_DUMP)
            KOLT_DUMP("hd samples: %s", ps_number_list(std::span(ring)).text);
    }
    ps_path &picked = (*paths)[ps_majority_choice(ring)];
    return picked.is_present() ? &picked : &(*paths)[type];
}

int path_selection_update_uplink_hd_table(interface_cache *interfaces, const char *bridge, const uint8_t *bridge_mac,
                                          const kolt_client &client, const char *hd_name, const uint8_t *reference_mac,
                                          const kolt_ap_client_list *ap_clients) {
    const uint32_t target = interfaces->index_of(hd_name);
    if (!client.is_relay()) {
        if (client.hd_port == target)
            return 1;
        if (path_selection_ctx.configuration->param.cpu_limit != 0 && path_selection_is_high_data_rate() == 1)
            return 1;
    }
    if (client.type == KOLT_LINK_PLC && kolt_mac_equal(client.mac, reference_mac) == 0 &&
        kolt_check_mac_in_ap_client_list(ap_clients, client.mac) == 0)
        return 0;
    if (client.is_relay())
        return 0;
    const kolt_name_text name(hd_name);
    const int result = kolt_add_hd_entry(bridge, bridge_mac, client.mac, name.text);
    KOLT_INFO("add hd client: %02X:%02X:%02X:%02X:%02X:%02X to %s %s", KOLT_MAC_OCTETS(client.mac), name.text,
              result != 0 ? "success" : "failed");
    return result;
}
