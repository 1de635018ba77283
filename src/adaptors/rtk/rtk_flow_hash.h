// The hash by which the Realtek flow cache finds a flow's HA entry.
#pragma once

#include "adaptors/wlan_platform.h"

#include <cstdint>

// The HA bucket of a flow.
uint8_t kolt_ha_hash_rtk(const kolt_flow &flow);

// The flow-cache operation of flow_cache.h: writes the HA entry of the flow's bucket.
int kolt_cal_hash_and_set_ha_rtk(const char *bridge, uint32_t protocol, uint32_t src_ip, uint32_t dst_ip,
                                 uint16_t src_port, uint16_t dst_port, const uint8_t *src_mac, const uint8_t *dst_mac,
                                 const char *ifname, uint16_t stream_kind, uint32_t carried_value);
