// A moved stream takes its share off the best path's quota at once, so that the clients after it see what is left.
#include "path_selection/ha_balancing.h"

#include "core/log.h"
#include "path_selection/decide/load.h"
#include "path_selection/paths.h"
#include "path_selection/stream_move.h"

namespace {

constexpr char BALANCING[] = "path_selection_update_uplink_ha_table";

void log_streams(const kolt_client &client) {
    if (log_level < KOLT_LOG_DEBUG)
        return;
    for (int i = 0; i < KOLT_MAX_STREAMS && kolt_check_ha_entry_valid(&client.ha[i]) != 0; i++) {
        const ha_entry &entry = client.ha[i];
        KOLT_DEBUG_AS(BALANCING,
                      "ha[%d]: hash: %d, src_port: %d, dst_port: %d, port: %d, num_bytes: %u, num_pkts: %u, "
                      "num_txbytes: %u, num_rxbytes: %u, estimated: %d, is_fcache: %d, flow_idx: %d",
                      i, entry.hash, entry.src_port, entry.dst_port, static_cast<int>(entry.port), entry.num_bytes,
                      entry.num_pkts, entry.num_txbytes, entry.num_rxbytes, entry.estimated, entry.is_fcache,
                      static_cast<int>(entry.flow_idx));
    }
}

// Moves one stream if it fits, and lowers the quota by what it takes; whether it was moved.
bool move_if_it_fits(const balancing &at, const ha_entry &entry, const ps_quota_step &step) {
    ps_path &best = *at.best;
    if (step.quota >= static_cast<uint32_t>(best.quota) ||
        path_selection_update_ha_entry(at.interfaces, at.bridge, entry, best, at.budget) == 0)
        return false;
    const int remain = best.quota - static_cast<int>(step.quota);
    KOLT_INFO_AS(BALANCING, "ha_rate: %d, req_quota: %d, quota remain: %d", static_cast<int>(step.rate),
                 static_cast<int>(step.quota), remain);
    best.quota = static_cast<int16_t>(remain);
    return true;
}

uint8_t move_streams(const balancing &at, const kolt_client &client, uint8_t adjust_num) {
    const config_param &param = at.configuration->param;
    const uint32_t target = at.interfaces->index_of(at.best->name);
    uint8_t moved = 0;
    for (const ha_entry &entry : client.ha) {
        if (moved >= param.adjusted_streams || moved >= adjust_num || kolt_check_ha_entry_valid(&entry) != 1)
            break;
        if (path_selection_is_path_overloaded(at, entry.port) != 1 || entry.port == target)
            continue;
        const ps_quota_step step = ps_stream_quota(entry.num_bytes, param.period, at.best->rate);
        if (step.quota == 0)
            break;
        if (move_if_it_fits(at, entry, step))
            moved++;
    }
    return moved;
}

} // namespace

uint8_t path_selection_get_adjust_num(const balancing &at, std::span<const ha_entry> entries) {
    const config_param &param = at.configuration->param;
    const uint32_t target = at.interfaces->index_of(at.best->name);
    const int64_t budget = param.adjusted_ratio * at.best->quota / 100;
    return ps_count_fitting_streams(entries, target, budget, param.period, at.best->rate);
}

int path_selection_is_path_overloaded(const balancing &at, uint32_t port) {
    const ps_path *row = path_selection_get_path_by_port(at.interfaces, at.paths, port);
    if (row == nullptr)
        return 0;
    const config_param &param = at.configuration->param;
    return ps_is_overloaded_beside(*row, *at.best, param.high_threshold, param.delta_threshold) ? 1 : 0;
}

void path_selection_update_uplink_ha_table(const balancing &at, const kolt_client &client) {
    log_streams(client);
    if (!client.is_nonrelay() || at.best->quota <= 0)
        return;
    const uint8_t adjust_num = path_selection_get_adjust_num(at, client.ha);
    KOLT_DEBUG("adjust_num: %d", adjust_num);
    const uint8_t moved = move_streams(at, client, adjust_num);
    KOLT_DEBUG("adjust_real_count: %d", moved);
}
