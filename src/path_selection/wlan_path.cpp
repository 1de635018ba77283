// What the driver says of a port; what the figures come to is decided elsewhere.
#include "path_selection/wlan_path.h"

#include "adaptors/wlan.h"
#include "core/log.h"
#include "path_selection/number_list.h"
#include "probes/node_state.h"

namespace {

constexpr char MEASURING[] = "path_selection_get_wlan_path_info";

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

} // namespace

// The order of the questions matters to the log: the link's state is read, and a missing file told, before the last
// one.
bool path_selection_is_measured(const config_interface *port) {
    return port->is_nonrelay() && port->type != KOLT_LINK_NONE && port->class_ != KOLT_BCAST_CLASS_1 &&
           kolt_check_link_state(port->type) == 1 && kolt_is_wifi_link(port->type);
}

port_verdict path_selection_measure_port(const config_param &param, const config_interface *port, path_walk *walk,
                                         ps_path_table *paths, ps_history_table *histories) {
    char base[KOLT_NAME_SIZE];
    kolt_get_base_name(base, port->name);
    port_reading reading;
    bool &done = walk->done[port->type];
    if (!read_port(port, base, done, &reading))
        return {};
    const ps_rates rates = rates_of(reading.rates);
    if (port->type == KOLT_LINK_2G && ps_is_healthy(rates, param.rate_abnormal_threshold))
        walk->healthy_2g = true;
    ps_path &row = (*paths)[port->type];
    fill_row(&row, port, base, reading, done);
    done = true;
    const bool abnormal = is_abnormal(param, port, rates, walk->healthy_2g);
    row.rate = abnormal ? 0 : path_selection_get_wlan_path_rate(&(*histories)[port->type], reading.rates);
    return {.abnormal = abnormal, .rates = rates};
}

uint16_t path_selection_get_wlan_path_rate(ps_path_history *history, const wlan_uplink_rate &rates) {
    const ps_processed_rate processed = ps_add_rate_sample(history, rates_of(rates));
    if (log_level >= KOLT_LOG_DUMP)
        KOLT_DUMP("samples: %s", ps_number_list(std::span(processed.sorted)).text);
    return processed.rate;
}
