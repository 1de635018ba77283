// Dispatch through the driver operation table.
#include "adaptors/flow_cache.h"

int kolt_flush_all_fcache_flow() {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->flush_all_fcache_flow == nullptr)
        return 0;
    return wlan_platform_ops->flush_all_fcache_flow();
}

int kolt_flush_fcache_flow_entry(uint32_t flow_idx) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->flush_fcache_flow_entry == nullptr)
        return 0;
    return wlan_platform_ops->flush_fcache_flow_entry(flow_idx) != 0 ? 1 : 0;
}

int kolt_update_fcache_flow_list(uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->update_fcache_flow_list == nullptr)
        return 0;
    return wlan_platform_ops->update_fcache_flow_list(a, b, c, d) != 0 ? 1 : 0;
}

int kolt_get_maximal_ha_entries_from_fcache(kolt_client_list *clients, uint8_t limit,
                                            const kolt_interface_list *ports) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->get_maximal_ha_entries_from_fcache == nullptr)
        return 0;
    return wlan_platform_ops->get_maximal_ha_entries_from_fcache(clients, limit, ports) != 0 ? 1 : 0;
}

void kolt_flush_fc_flow_by_ha(const kolt_fc_flow_key *key, uint8_t path) {
    if (wlan_platform_ops != nullptr && wlan_platform_ops->flush_fc_flow_by_ha != nullptr)
        wlan_platform_ops->flush_fc_flow_by_ha(key, path);
}

int kolt_flush_fc_flow_by_mac(const uint8_t *mac, uintptr_t word) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->flush_fc_flow_by_mac == nullptr)
        return 0;
    return wlan_platform_ops->flush_fc_flow_by_mac(mac, word);
}

int kolt_get_if_stat_from_fcache(uint32_t ifindex, uint32_t *rx_packets, uint32_t *rx_bytes, uint32_t *tx_packets,
                                 uint32_t *tx_bytes) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->get_if_stat_from_fcache == nullptr)
        return 0;
    return wlan_platform_ops->get_if_stat_from_fcache(ifindex, rx_packets, rx_bytes, tx_packets, tx_bytes) != 0 ? 1 : 0;
}

int kolt_cal_hash_and_set_ha(const char *bridge, uint32_t protocol, uint32_t src_ip, uint32_t dst_ip, uint16_t src_port,
                             uint16_t dst_port, const uint8_t *src_mac, const uint8_t *dst_mac, const char *ifname,
                             uint16_t stream_kind, uint32_t carried_value) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->cal_hash_and_set_ha == nullptr)
        return 0;
    return wlan_platform_ops->cal_hash_and_set_ha(bridge, protocol, src_ip, dst_ip, src_port, dst_port, src_mac,
                                                  dst_mac, ifname, stream_kind, carried_value) != 0
               ? 1
               : 0;
}

int kolt_configure_fc_mode(kolt_work_mode mode) {
    if (wlan_platform_ops == nullptr || wlan_platform_ops->configure_fc_mode == nullptr)
        return 0;
    return wlan_platform_ops->configure_fc_mode(mode) != 0 ? 1 : 0;
}
