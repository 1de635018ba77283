// The HA entry first, then the flow cache that would hide it, then the parent, which sends the answers.
#include "path_selection/stream_move.h"

#include "adaptors/flow_cache.h"
#include "core/log.h"
#include "probes/bridge_tables.h"
#include "probes/node_state.h"

#include <cstring>

namespace {

constexpr char MOVING[] = "path_selection_update_ha_entry";

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

void notify_parent(interface_cache *interfaces, const ha_entry &entry, const ps_path &best, kolt_wait_budget *budget) {
    notify_record record;
    if (kolt_get_parent_mac(record.parent_mac) == 0)
        return;
    memcpy(record.src_addr, entry.src_addr, sizeof record.src_addr);
    memcpy(record.dst_addr, entry.dst_addr, sizeof record.dst_addr);
    record.src_port = entry.src_port;
    record.dst_port = entry.dst_port;
    record.protocol = entry.protocol;
    record.path = static_cast<uint8_t>(best.path);
    const bool answered = kolt_send_notify_msg(&record, budget) == 1;
    interfaces->after_wait();
    if (answered)
        KOLT_INFO_AS(MOVING, "send notify msg success");
    else
        KOLT_INFO_AS(MOVING, "send notify msg failed");
}

} // namespace

int path_selection_update_ha_entry(interface_cache *interfaces, const char *bridge, const ha_entry &entry,
                                   const ps_path &best, kolt_wait_budget *budget) {
    const kolt_name_text path(best.name);
    const int result = entry.is_fcache == 0 ? move_bridge_stream(bridge, entry, path.text)
                                            : move_cached_stream(bridge, entry, path.text);
    if (result != 0)
        notify_parent(interfaces, entry, best, budget);
    return result;
}
