// Reads the Wi-Fi links through the driver; what the figures come to is decided elsewhere.
#include "path_selection/measurement.h"

#include "adaptors/wlan.h"
#include "core/log.h"
#include "path_selection/context.h"
#include "path_selection/decide/load.h"
#include "path_selection/decide/quota.h"
#include "path_selection/decide/rate.h"
#include "path_selection/number_list.h"
#include "probes/cpu.h"
#include "probes/node_state.h"

#include <duon_bridge.h>

namespace {

constexpr char MEASURING[] = "path_selection_get_wlan_path_info";
constexpr char QUOTAS[] = "path_selection_init_path_quota";

// The order of the questions matters to the log: the link's state is read, and a missing file told, before the last
// one.
bool is_measured(const config_interface *port) {
    return port->is_nonrelay() && port->type != KOLT_LINK_NONE && port->class_ != KOLT_BCAST_CLASS_1 &&
           kolt_check_link_state(port->type) == 1 && kolt_is_wifi_link(port->type);
}

// What one walk over the path ports remembers.
struct measuring_walk {
    bool done[KOLT_LINK_COUNT] = {};
    bool healthy_2g = false;
};

struct port_reading {
    wlan_uplink_rate rates;
    uint8_t rssi = 0;
    uint8_t util = 0;
};

// Asks the driver about a port; false, after a message, when it cannot tell.
bool read_port(const config_interface *port, const char *base, bool done, port_reading *reading) {
    if (wlan_get_uplink_rate(base, &reading->rates, &reading->rssi, port->type) == 1 &&
        (done || wlan_get_channel_utilization(base, &reading->util, port->type) == 1))
        return true;
    KOLT_DEBUG_AS(MEASURING, "path: %.16s maybe disconnected", port->name);
    return false;
}

ps_rates rates_of(const wlan_uplink_rate &rates) {
    return {.tx = rates.tx_rate, .rx = rates.rx_rate};
}

// Judges a 5 GHz path against a healthy 2.4 GHz one that came before it.
bool is_abnormal(const config_param &param, const config_interface *port, const ps_rates &rates, bool healthy_2g) {
    return param.wifi_rate_check != 0 && healthy_2g && (port->type == KOLT_LINK_5G || port->type == KOLT_LINK_5G_2) &&
           !ps_is_healthy(rates, param.rate_abnormal_threshold);
}

// Writes what a port tells of its path, but for the rate. The first port of a type names the path and gives its
// utilisation.
void fill_row(ps_path *row, const config_interface *port, const char *base, const port_reading &reading, bool done) {
    row->priority = port->priority;
    if (done)
        return;
    row->util = reading.util;
    row->util_aux = reading.rssi;
    (void)kolt_get_vlan_name(row->name, base, 1, 1);
}

void measure_port(const char *bridge, const config_param &param, const config_interface *port, measuring_walk *walk,
                  ps_path_table *paths) {
    char base[KOLT_NAME_SIZE];
    kolt_get_base_name(base, port->name);
    port_reading reading;
    bool &done = walk->done[port->type];
    if (!read_port(port, base, done, &reading))
        return;
    const ps_rates rates = rates_of(reading.rates);
    if (port->type == KOLT_LINK_2G && ps_is_healthy(rates, param.rate_abnormal_threshold))
        walk->healthy_2g = true;
    ps_path &row = (*paths)[port->type];
    fill_row(&row, port, base, reading, done);
    done = true;
    if (!is_abnormal(param, port, rates, walk->healthy_2g)) {
        row.rate = path_selection_get_wlan_path_rate(&path_selection_ctx.histories[port->type], reading.rates);
        return;
    }
    row.rate = 0;
    (void)bridgeFlushHATable(bridge); // the path stays abnormal, so the next period tries again
    KOLT_INFO_AS(MEASURING, "path: %.16s tx:%d rx:%d abnormal, not choose", port->name, rates.tx, rates.rx);
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
    measuring_walk walk;
    for (const config_interface *port : path_ports->span()) {
        if (is_measured(port))
            measure_port(bridge, config->param, port, &walk, paths);
    }
}

uint16_t path_selection_get_wlan_path_rate(ps_path_history *history, const wlan_uplink_rate &rates) {
    const ps_processed_rate processed = ps_add_rate_sample(history, rates_of(rates));
    if (log_level >= KOLT_LOG_DUMP)
        KOLT_DUMP("samples: %s", ps_number_list(std::span(processed.sorted)).text);
    return processed.rate;
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
