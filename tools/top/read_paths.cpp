// The daemon's own functions measure and judge; an abnormal link, which makes a period flush, is only noted.
#include "read_paths.h"

#include "core/names.h"
#include "path_selection/decide/acknowledgements.h"
#include "path_selection/decide/quota.h"
#include "path_selection/measurement.h"
#include "path_selection/uplink.h"
#include "path_selection/wlan_path.h"
#include "probes/node_state.h"

#include <algorithm>
#include <cstring>
#include <net/if.h>

namespace {

constexpr uint64_t BITS_PER_BYTE = 8;
constexpr uint64_t US_PER_S = 1000000;

// Whether a port belongs to the node's uplink, as path selection counts.
bool is_uplink(const config_interface &port) {
    return port.path != 0 && port.is_nonrelay() && port.class_ != KOLT_BCAST_CLASS_1 && port.type < KOLT_LINK_COUNT;
}

void measure(const top_bridge &bridge, const config &configuration, ps_history_table *histories,
             top_measured *measured) {
    *measured = {};
    path_walk walk;
    for (const config_interface *port : bridge.ports.span()) {
        if (port->path == 0 || !path_selection_is_measured(port))
            continue;
        const port_verdict verdict =
            path_selection_measure_port(configuration.param, port, &walk, &measured->rows, histories);
        if (verdict.abnormal)
            measured->abnormal[port->type] = true;
    }
}

// Measures the bridge's links when it is time to; else what was measured last still holds.
void take_measured(top_reader *reader, uint32_t number, const top_moment &moment) {
    top_bridge &bridge = reader->node.bridges[number];
    top_measured &measured = reader->measured[number];
    ps_history_table looked_at = reader->histories;
    if (moment.measured && reader->configuration.param.wlan_enable != 0)
        measure(bridge, reader->configuration, moment.sampled ? &reader->histories : &looked_at, &measured);
    bridge.rows = measured.rows;
    for (const kolt_link_type type : KOLT_LINKS)
        bridge.paths[type].abnormal = measured.abnormal[type];
}

// Whether it was the processor that left 2.4 GHz nothing: without it there would be something.
bool is_cpu_overloaded(ps_path row, const config_param &param) {
    const int16_t quota = row.quota;
    (void)ps_set_quota(&row, KOLT_LINK_2G, param.reserved_ratio, false);
    return row.is_present() && quota == 0 && row.quota != 0;
}

void judge(top_bridge *bridge, const config &configuration) {
    const config_param &param = configuration.param;
    bridge->overloaded = path_selection_check_paths_overload(&configuration, bridge->rows) == 1;
    bridge->full = path_selection_check_paths_full_load(&configuration, bridge->rows) == 1;
    path_selection_init_path_quota(&configuration, &bridge->rows);
    bridge->cpu_overloaded = is_cpu_overloaded(bridge->rows[KOLT_LINK_2G], param);
    if (param.backhual_prefered != 0)
        bridge->prefers_backhaul =
            path_selection_is_prefered_path(bridge->rows, static_cast<kolt_link_type>(param.backhual_prefered + 1U),
                                            param.rate_threshold) == 1;
}

// The first port of a type describes it, but for the priority, which is the one that it was measured with.
void describe(top_path *path, const config_interface &port, const ps_path &row) {
    if (path->configured)
        return;
    path->configured = true;
    path->up = kolt_check_link_state(port.type) == 1;
    path->priority = row.is_present() ? row.priority : port.priority;
    memcpy(path->name, kolt_name_text(row.is_present() ? row.name : port.name).text, sizeof path->name);
    path->ifindex = if_nametoindex(path->name);
}

// The rate since the reading before; none where the counters began anew meanwhile.
void time_traffic(top_traffic *traffic, const top_last_counters &last, uint32_t ifindex, uint64_t now_us) {
    if (last.at_us == 0 || last.ifindex != ifindex || now_us <= last.at_us || traffic->rx_bytes < last.rx_bytes ||
        traffic->tx_bytes < last.tx_bytes)
        return;
    const uint64_t passed = now_us - last.at_us;
    traffic->timed = true;
    traffic->rx_bit_rate = (traffic->rx_bytes - last.rx_bytes) * BITS_PER_BYTE * US_PER_S / passed;
    traffic->tx_bit_rate = (traffic->tx_bytes - last.tx_bytes) * BITS_PER_BYTE * US_PER_S / passed;
}

void count_traffic(top_path *path, const top_counter_table &table, top_last_counters *last, uint64_t now_us) {
    top_counters counters;
    if (!table.find(path->name, &counters))
        return;
    top_traffic &traffic = path->traffic;
    traffic.counted = true;
    traffic.rx_bytes = counters.rx_bytes;
    traffic.tx_bytes = counters.tx_bytes;
    time_traffic(&traffic, *last, path->ifindex, now_us);
    *last = {.ifindex = path->ifindex, .rx_bytes = counters.rx_bytes, .tx_bytes = counters.tx_bytes, .at_us = now_us};
}

// What a period in which streams may move remembers of the traffic, to weigh acknowledgements by.
void remember_traffic(const top_bridge &bridge, const top_counter_table &table, ps_history_table *histories) {
    for (const kolt_link_type type : KOLT_LINKS) {
        top_counters counters;
        if (!bridge.rows[type].is_present() || !table.find(bridge.paths[type].name, &counters))
            continue;
        ps_path_history &history = (*histories)[type];
        history.ifindex = bridge.paths[type].ifindex;
        history.prev_stat = history.cur_stat;
        history.cur_stat = {.rx_bytes = counters.rx_bytes,
                            .rx_packets = counters.rx_packets,
                            .tx_bytes = counters.tx_bytes,
                            .tx_packets = counters.tx_packets};
        ps_take_traffic(&history, ps_kernel_traffic(history.prev_stat, history.cur_stat));
    }
}

} // namespace

void top_read_paths(top_reader *reader, uint32_t number, top_moment moment) {
    const config &configuration = reader->configuration;
    top_bridge &bridge = reader->node.bridges[number];
    if (!bridge.selects_paths)
        return;
    take_measured(reader, number, moment);
    judge(&bridge, configuration);
    for (const config_interface *port : bridge.ports.span()) {
        if (is_uplink(*port))
            describe(&bridge.paths[port->type], *port, bridge.rows[port->type]);
    }
    for (const kolt_link_type type : KOLT_LINKS) {
        if (bridge.paths[type].configured)
            count_traffic(&bridge.paths[type], reader->counters, &reader->last[number][type], moment.now_us);
    }
    if (moment.sampled && bridge.adjusts() && configuration.param.estimate_ack_enable != 0)
        remember_traffic(bridge, reader->counters, &reader->histories);
}
