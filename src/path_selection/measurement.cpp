// The walk over the Wi-Fi links, and what a period does about a broken one; what the figures come to is decided
// elsewhere.
#include "path_selection/measurement.h"

#include "core/log.h"
#include "path_selection/context.h"
#include "path_selection/decide/load.h"
#include "path_selection/decide/quota.h"
#include "path_selection/wlan_path.h"
#include "probes/cpu.h"

#include <duon_bridge.h>

namespace {

constexpr char MEASURING[] = "path_selection_get_wlan_path_info";
constexpr char QUOTAS[] = "path_selection_init_path_quota";

void measure_port(const char *bridge, const config_param &param, const config_interface *port, path_walk *walk,
                  ps_path_table *paths) {
    const port_verdict verdict = path_selection_measure_port(param, port, walk, paths, &path_selection_ctx.histories);
    if (!verdict.abnormal)
        return;
    (void)bridgeFlushHATable(bridge); // the path stays abnormal, so the next period tries again
    KOLT_INFO_AS(MEASURING, "path: %.16s tx:%d rx:%d abnormal, not choose", port->name, verdict.rates.tx,
                 verdict.rates.rx);
}

void log_row(const ps_path &row, const ps_path_history &history) {
    const ps_rate_sample &newest = history.samples[history.sample_index];
    KOLT_INFO_AS(QUOTAS,
                 "path: %.16s, util: %d, util_adjustment: %d, adjusted_util: %d, quota: %d, rx_tx_factor: %d, "
                 "rx_pkt_size: %d, rx_selected: %d, tx_rate: %d, rx_rate: %d, processed_rate: %d",
                 row.name, row.util, row.util_adjustment, row.adjusted_util(), row.quota, history.rx_tx_factor,
                 static_cast<int>(history.rx_pkt_size), history.rx_selected, newest.tx_rate, newest.rx_rate, row.rate);
}

} // namespace

void path_selection_get_wlan_path_info(const char *bridge, const kolt_interface_list *path_ports, ps_path_table *paths,
                                       const config *config) {
    path_walk walk;
    for (const config_interface *port : path_ports->span()) {
        if (path_selection_is_measured(port))
            measure_port(bridge, config->param, port, &walk, paths);
    }
}

int path_selection_check_paths_overload(const config *config, const ps_path_table &paths) {
    return ps_is_any_overloaded(paths, config->param.high_threshold) ? 1 : 0;
}

int path_selection_check_paths_full_load(const config *config, const ps_path_table &paths) {
    const ps_full_load load = ps_check_full_load(paths, config->param.high_threshold, config->param.delta_threshold);
    if (load.lighter != PATH_NONE)
        KOLT_DEBUG("path %d util: %d, path %d util: %d", static_cast<int>(load.loaded), paths[load.loaded].util,
                   static_cast<int>(load.lighter), paths[load.lighter].util);
    return load.full ? 1 : 0;
}

void path_selection_init_path_quota(const config *config, ps_path_table *paths) {
    const bool cpu_overloaded = kolt_check_cpu_overload(config) != 0;
    for (const kolt_link_type type : KOLT_LINKS) {
        ps_path &row = (*paths)[type];
        if (!row.is_present())
            continue;
        if (ps_set_quota(&row, type, config->param.reserved_ratio, cpu_overloaded))
            KOLT_DEBUG("cpu overload! kolt will not select 2.4G!");
        log_row(row, path_selection_ctx.histories[type]);
    }
}
