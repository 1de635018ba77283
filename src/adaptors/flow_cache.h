// Flow-cache operations, whatever the packet fast path. An operation that the platform lacks does nothing and returns
// 0, which is nothing to do and no error.
#pragma once

#include "adaptors/wlan_platform.h"

#include <cstdint>

// Drops every cached flow; the platform's result as it is.
int kolt_flush_all_fcache_flow();

// Drops one cached flow; 1, or 0.
int kolt_flush_fcache_flow_entry(uint32_t flow_idx);

// Refreshes the platform's flow list; 1, or 0.
int kolt_update_fcache_flow_list(uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d);

// Adds cached streams to the clients' stream records, at most `limit` a client; 1, or 0.
int kolt_get_maximal_ha_entries_from_fcache(kolt_client_list *clients, uint8_t limit, const kolt_interface_list *ports);

// Drops the cached flow that the key names.
void kolt_flush_fc_flow_by_ha(const kolt_fc_flow_key *key, uint8_t path);

// Drops the cached flows of a station; the platform's result as it is.
int kolt_flush_fc_flow_by_mac(const uint8_t *mac, uintptr_t word);

// Stores the traffic of an interface that went past the kernel; 1, or 0.
int kolt_get_if_stat_from_fcache(uint32_t ifindex, uint32_t *rx_packets, uint32_t *rx_bytes, uint32_t *tx_packets,
                                 uint32_t *tx_bytes);

// Computes a flow's hash and points its HA bucket at the path `ifname`; addresses and ports in network order. 1, or 0.
int kolt_cal_hash_and_set_ha(const char *bridge, uint32_t protocol, uint32_t src_ip, uint32_t dst_ip, uint16_t src_port,
                             uint16_t dst_port, const uint8_t *src_mac, const uint8_t *dst_mac, const char *ifname,
                             uint16_t stream_kind, uint32_t carried_value);

// Tells the flow cache the node's work mode; 1, or 0.
int kolt_configure_fc_mode(kolt_work_mode mode);
