// Reading one Wi-Fi port into the path table. Nothing is done about what is found, so that whoever only wants to see
// the paths can read them as a period does.
#pragma once

#include "adaptors/wlan_platform.h"
#include "core/config.h"
#include "path_selection/decide/paths.h"
#include "path_selection/decide/rate.h"

#include <cstdint>

// What one walk over the path ports remembers.
struct path_walk {
    bool done[KOLT_LINK_COUNT] = {};
    bool healthy_2g = false;
};

// A port's rates, and whether they are too low to use the path beside the others.
struct port_verdict {
    bool abnormal = false;
    ps_rates rates;
};

// Whether a path port is one that is measured: a nonrelay Wi-Fi port of a link that is up.
bool path_selection_is_measured(const config_interface *port);

// Writes what the driver tells of a port into the row of its type, and a sample into the history. An abnormal path is
// left without a rate and a sample.
port_verdict path_selection_measure_port(const config_param &param, const config_interface *port, path_walk *walk,
                                         ps_path_table *paths, ps_history_table *histories);

// Adds one pair of rates to a path's samples and returns the processed rate, 0 without any.
uint16_t path_selection_get_wlan_path_rate(ps_path_history *history, const wlan_uplink_rate &rates);
