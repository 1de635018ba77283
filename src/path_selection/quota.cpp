#include "core/log.h"
#include "path_selection/module_parts.h"
#include "probes/cpu.h"

#include <algorithm>

namespace {

constexpr char OPERATION[] = "path_selection_init_path_quota";
constexpr int QUOTA_PER_PERCENT = 100;

// Cuts to the 8 bits that the quota is computed in, and to nothing below 0.
int8_t floor_8bit(int value) {
    return std::max(static_cast<int8_t>(value), int8_t{0});
}

void log_row(const ps_path &row, const ps_path_history &history) {
    const ps_rate_sample &newest = history.samples[history.sample_index];
    KOLT_INFO_AS(OPERATION,
                 "path: %.16s, util: %d, util_adjustment: %d, adjusted_util: %d, quota: %d, rx_tx_factor: %d, "
                 "rx_pkt_size: %d, rx_selected: %d, tx_rate: %d, rx_rate: %d, processed_rate: %d",
                 row.name, row.util, row.util_adjustment, ps_adjusted_util(row), row.quota, history.rx_tx_factor,
                 static_cast<int>(history.rx_pkt_size), history.rx_selected, newest.tx_rate, newest.rx_rate, row.rate);
}

} // namespace

void path_selection_init_path_quota(const config *config, ps_path_table *paths) {
    const bool overloaded = kolt_check_cpu_overload(config) != 0;
    const int reserved = config->param.reserved_ratio;
    for (uint32_t type = 0; type < KOLT_LINK_COUNT; type++) {
        ps_path &row = (*paths)[type];
        if (!ps_is_present(row))
            continue;
        row.path = type;
        // Power line gives the reserve twice: its own traffic is not in the utilisation that it reports.
        if (type == KOLT_LINK_PLC)
            row.util = static_cast<uint8_t>(floor_8bit(row.util - reserved));
        row.quota = static_cast<int16_t>(floor_8bit(100 - reserved - ps_adjusted_util(row)) * QUOTA_PER_PERCENT);
        if (overloaded && type == KOLT_LINK_2G) {
            KOLT_DEBUG_AS(OPERATION, "cpu overload! kolt will not select 2.4G!");
            row.quota = 0;
        }
        log_row(row, path_selection_ctx.histories[type]);
    }
}
