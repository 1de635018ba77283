#include "adaptors/wlan.h"
#include "core/log.h"
#include "path_selection/module_parts.h"
#include "probes/cpu.h"
#include "probes/node_state.h"

#include <algorithm>
#include <cstdio>
#include <duon_bridge.h>

namespace {

constexpr char MEASURING[] = "path_selection_get_wlan_path_info";

constexpr uint16_t LOWEST_TRUSTED_RATE = 21; // a lower one is a direction that idles
constexpr uint8_t CLASS_EXCLUDED = 1;

// The order of the questions matters to the log: the link's state is read, and a missing file told, before the last
// one.
bool is_measured(const config_interface *port) {
    return port->relay == 0 && port->type != KOLT_LINK_NONE && port->class_ != CLASS_EXCLUDED &&
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

// Judges a 5 GHz path against a healthy 2.4 GHz one that came before it.
bool is_abnormal(const config_param &param, const config_interface *port, const wlan_uplink_rate &rates,
                 bool healthy_2g) {
    return param.wifi_rate_check != 0 && healthy_2g && (port->type == KOLT_LINK_5G || port->type == KOLT_LINK_5G_2) &&
           (rates.tx_rate < param.rate_abnormal_threshold || rates.rx_rate < param.rate_abnormal_threshold);
}

void measure_port(const char *bridge, const config_param &param, const config_interface *port, measuring_walk *walk,
                  ps_path_table *paths) {
    char base[KOLT_NAME_SIZE];
    kolt_get_base_name(base, port->name);
    port_reading reading;
    bool &done = walk->done[port->type];
    if (!read_port(port, base, done, &reading))
        return;
    const wlan_uplink_rate &rates = reading.rates;
    if (port->type == KOLT_LINK_2G && rates.tx_rate >= param.rate_abnormal_threshold &&
        rates.rx_rate >= param.rate_abnormal_threshold)
        walk->healthy_2g = true;

    ps_path &row = (*paths)[port->type];
    row.priority = port->priority;
    if (!done) {
        row.util = reading.util;
        row.util_aux = reading.rssi;
        (void)kolt_get_vlan_name(row.name, base, 1, 1);
    }
    done = true;
    if (!is_abnormal(param, port, rates, walk->healthy_2g)) {
        row.rate = path_selection_get_wlan_path_rate(&path_selection_ctx.histories[port->type], rates);
        return;
    }
    row.rate = 0;
    (void)bridgeFlushHATable(bridge); // the path stays abnormal, so the next period tries again
    KOLT_INFO_AS(MEASURING, "path: %.16s tx:%d rx:%d abnormal, not choose", port->name, rates.tx_rate, rates.rx_rate);
}

uint16_t direction_rate(const wlan_uplink_rate &rates, bool rx_selected) {
    const auto [low, high] = std::minmax(rates.tx_rate, rates.rx_rate);
    if (low < LOWEST_TRUSTED_RATE)
        return high;
    return rx_selected ? rates.rx_rate : rates.tx_rate;
}

void log_samples(const uint16_t (&sorted)[PS_SAMPLES]) {
    if (log_level < KOLT_LOG_DUMP)
        return;
    char text[PS_SAMPLES * sizeof "65535, "];
    size_t length = 0;
    for (size_t i = 0; i < PS_SAMPLES; i++)
        length +=
            static_cast<size_t>(snprintf(text + length, sizeof text - length, "%s%d", i == 0 ? "" : ", ", sorted[i]));
    KOLT_DUMP_AS("path_selection_get_wlan_path_rate", "samples: %s", text);
}

// Whether row `j` is so much lighter than row `i` that the paths as a whole have room.
bool has_room(const ps_path_table &paths, uint32_t i, uint32_t j, int delta) {
    const int adjusted = ps_adjusted_util(paths[i]);
    if (paths[j].util >= adjusted || adjusted - paths[j].util <= delta)
        return false;
    KOLT_DEBUG_AS("path_selection_check_paths_full_load", "path %d util: %d, path %d util: %d", static_cast<int>(i),
                  paths[i].util, static_cast<int>(j), paths[j].util);
    return true;
}

bool is_loaded_wifi(const ps_path &row) {
    return ps_is_present(row) && row.rate != 0;
}

} // namespace

void path_selection_get_wlan_path_info(const char *bridge, const kolt_interface_list *path_ports, ps_path_table *paths,
                                       const config *config) {
    measuring_walk walk;
    for (uint8_t i = 0; i < path_ports->count; i++) {
        if (is_measured(path_ports->interfaces[i]))
            measure_port(bridge, config->param, path_ports->interfaces[i], &walk, paths);
    }
}

uint16_t path_selection_get_wlan_path_rate(ps_path_history *history, const wlan_uplink_rate &rates) {
    if (history->samples[history->sample_index].rate != 0)
        history->sample_index = static_cast<uint8_t>((history->sample_index + 1U) % PS_SAMPLES);
    history->samples[history->sample_index] = {
        .tx_rate = rates.tx_rate, .rx_rate = rates.rx_rate, .rate = direction_rate(rates, history->rx_selected != 0)};
    uint16_t sorted[PS_SAMPLES];
    std::transform(std::begin(history->samples), std::end(history->samples), sorted,
                   [](const ps_rate_sample &sample) { return sample.rate; });
    const uint8_t filled = kolt_sort_array(sorted, PS_SAMPLES);
    log_samples(sorted);
    return filled > 0 ? sorted[filled / 3] : 0;
}

int path_selection_check_paths_overload(const config *config, const ps_path_table &paths) {
    const bool overloaded = std::any_of(paths.begin(), paths.end(), [config](const ps_path &row) {
        return ps_is_present(row) && ps_adjusted_util(row) > config->param.high_threshold;
    });
    return overloaded ? 1 : 0;
}

int path_selection_check_paths_full_load(const config *config, const ps_path_table &paths) {
    int full = 0;
    for (uint32_t i = KOLT_LINK_2G; i <= KOLT_LINK_5G_2; i++) {
        if (!is_loaded_wifi(paths[i]))
            continue;
        if (ps_adjusted_util(paths[i]) <= config->param.high_threshold)
            return 0;
        for (uint32_t j = KOLT_LINK_2G; j <= KOLT_LINK_5G_2; j++) {
            if (j != i && is_loaded_wifi(paths[j]) && has_room(paths, i, j, config->param.delta_threshold))
                return 0;
        }
        full = 1;
    }
    return full;
}
