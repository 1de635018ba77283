#include "adaptors/flow_cache.h"
#include "core/log.h"
#include "core/hub/netlink_request.h"
#include "path_selection/interface_cache.h"
#include "path_selection/module_parts.h"
#include "path_selection/quota_units.h"
#include "probes/bridge_tables.h"
#include "probes/node_state.h"
#include "probes/streams.h"

#include <cstring>

namespace {

constexpr char MOVING[] = "path_selection_update_ha_entry";
constexpr char BALANCING[] = "path_selection_update_uplink_ha_table";

// What the parent node is told of a moved stream, host order.
struct notify_record {
    uint8_t parent_mac[KOLT_MAC_SIZE] = {};
    uint8_t zero_6[2] = {};
    uint8_t src_addr[KOLT_MAC_SIZE] = {};
    uint8_t dst_addr[KOLT_MAC_SIZE] = {};
    uint16_t src_port = 0;
    uint16_t dst_port = 0;
    uint32_t protocol = 0;
    uint8_t path = 0;
    uint8_t zero_29[3] = {};
};
static_assert(sizeof(notify_record) == KOLT_NOTIFY_SIZE);
static_assert(offsetof(notify_record, src_port) == 20);
static_assert(offsetof(notify_record, path) == 28);

const char *outcome(int result) {
    return result != 0 ? "success" : "failed";
}

int move_bridge_stream(const char *bridge, const ha_entry &entry, const char *path) {
    const int result = kolt_set_ha_entry(bridge, entry.hash, entry.src_addr, entry.dst_addr, entry.src_port,
                                         entry.dst_port, path, entry.stream_kind, entry.carried_value);
    KOLT_INFO_AS(MOVING,
                 "set ha entry %s, src_port: %d, dst_port: %d, client mac: %02X:%02X:%02X:%02X:%02X:%02X, "
                 "old path: %d, new path: %s",
                 outcome(result), entry.src_port, entry.dst_port, KOLT_MAC_OCTETS(entry.dst_addr),
                 static_cast<int>(entry.port), path);
    return result;
}

// The stream has moved when its cached flow is gone: only then the next packet looks at the HA table.
int move_cached_stream(const char *bridge, const ha_entry &entry, const char *path) {
    const int set =
        kolt_cal_hash_and_set_ha(bridge, entry.protocol, entry.src_ip, entry.dst_ip, entry.src_port, entry.dst_port,
                                 entry.src_addr, entry.dst_addr, path, entry.stream_kind, entry.carried_value);
    KOLT_INFO_AS(MOVING,
                 "set ha entry %s, src_port: %d, dst_port: %d, dst_addr: %02X:%02X:%02X:%02X:%02X:%02X, "
                 "old path: %d, new path: %s",
                 outcome(set), entry.src_port, entry.dst_port, KOLT_MAC_OCTETS(entry.dst_addr),
                 static_cast<int>(entry.port), path);
    const int flushed = kolt_flush_fcache_flow_entry(entry.flow_idx);
    KOLT_INFO_AS(MOVING,
                 "flush flow idx(%u) %s, src_port:%d, dst_port:%d, protocol: %d, "
                 "dst_addr: %02X:%02X:%02X:%02X:%02X:%02X,",
                 entry.flow_idx, outcome(flushed), entry.src_port, entry.dst_port, static_cast<int>(entry.protocol),
                 KOLT_MAC_OCTETS(entry.dst_addr));
    return flushed;
}

void notify_parent(const ha_entry &entry, const ps_path &best) {
    notify_record record;
    if (kolt_get_parent_mac(record.parent_mac) == 0)
        return;
    memcpy(record.src_addr, entry.src_addr, sizeof record.src_addr);
    memcpy(record.dst_addr, entry.dst_addr, sizeof record.dst_addr);
    record.src_port = entry.src_port;
    record.dst_port = entry.dst_port;
    record.protocol = entry.protocol;
    record.path = static_cast<uint8_t>(best.path);
    if (kolt_send_notify_msg(&record) == 1)
        KOLT_INFO_AS(MOVING, "send notify msg success");
    else
        KOLT_INFO_AS(MOVING, "send notify msg failed");
}

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
bool move_if_it_fits(const config *config, const char *bridge, const ha_entry &entry, const ps_quota_step &step,
                     ps_path *best) {
    if (step.quota >= static_cast<uint32_t>(best->quota) ||
        path_selection_update_ha_entry(config, bridge, entry, *best) == 0)
        return false;
    const int remain = best->quota - static_cast<int>(step.quota);
    KOLT_INFO_AS(BALANCING, "ha_rate: %d, req_quota: %d, quota remain: %d", static_cast<int>(step.rate),
                 static_cast<int>(step.quota), remain);
    best->quota = static_cast<int16_t>(remain);
    return true;
}

uint8_t move_streams(const config *config, const char *bridge, const kolt_client &client, uint8_t adjust_num,
                     ps_path *best, ps_path_table *paths) {
    const uint32_t target = ps_interface_index(best->name);
    uint8_t moved = 0;
    for (const ha_entry &entry : client.ha) {
        if (moved >= config->param.adjusted_streams || moved >= adjust_num || kolt_check_ha_entry_valid(&entry) != 1)
            break;
        if (path_selection_is_path_overloaded(config, entry.port, paths, *best) != 1 || entry.port == target)
            continue;
        const ps_quota_step step = ps_stream_quota(entry.num_bytes, config->param.period, best->rate);
        if (step.quota == 0)
            break;
        if (move_if_it_fits(config, bridge, entry, step, best))
            moved++;
    }
    return moved;
}

} // namespace

uint8_t path_selection_get_adjust_num(const config *config, const ha_entry *entries, const ps_path &best) {
    const uint32_t target = ps_interface_index(best.name);
    int64_t budget = config->param.adjusted_ratio * best.quota / 100;
    uint8_t count = 0;
    for (uint8_t i = 0; i < KOLT_MAX_STREAMS; i++) {
        if (kolt_check_ha_entry_valid(&entries[i]) == 0 || budget < 1)
            break;
        if (entries[i].port == target)
            continue;
        const ps_quota_step step = ps_stream_quota(entries[i].num_bytes, config->param.period, best.rate);
        if (step.quota == 0)
            break;
        budget -= step.quota;
        count++;
    }
    return count;
}

int path_selection_is_path_overloaded(const config *config, uint32_t port, ps_path_table *paths, const ps_path &best) {
    const ps_path *row = path_selection_get_path_by_port(paths, port);
    if (row == nullptr)
        return 0;
    const int adjusted = ps_adjusted_util(*row);
    return adjusted > config->param.high_threshold && adjusted - best.util > config->param.delta_threshold ? 1 : 0;
}

void path_selection_update_uplink_ha_table(const config *config, const char *bridge, kolt_client_list *clients,
                                           uint8_t client_index, ps_path *best, ps_path_table *paths) {
    const kolt_client &client = clients->clients[client_index];
    log_streams(client);
    if (client.relay != 0 || best->quota <= 0)
        return;
    const uint8_t adjust_num = path_selection_get_adjust_num(config, client.ha, *best);
    KOLT_DEBUG("adjust_num: %d", adjust_num);
    const uint8_t moved = move_streams(config, bridge, client, adjust_num, best, paths);
    KOLT_DEBUG("adjust_real_count: %d", moved);
}

int path_selection_update_ha_entry(const config * /*config*/, const char *bridge, const ha_entry &entry,
                                   const ps_path &best) {
    const kolt_name_text path(best.name);
    const int result = entry.is_fcache == 0 ? move_bridge_stream(bridge, entry, path.text)
                                            : move_cached_stream(bridge, entry, path.text);
    if (result != 0)
        notify_parent(entry, best);
    return result;
}
