// What the node's other daemons say of it in their runtime files. Each call reads its file afresh; a missing or broken
// file or a missing key is unknown, and a value of another type reads as the JSON library converts it.
#pragma once

#include "core/link_type.h"
#include "core/work_mode.h"

#include <cstdint>

// The node's work mode; KOLT_MODE_UNKNOWN when it is not told.
kolt_work_mode kolt_get_work_mode();

// The code of one mode text; null is unknown.
kolt_work_mode kolt_work_mode_from_string(const char *text);

// Copies the name of the interface that got the node's DHCP answer into a 16-byte field; 1, or 0 when it is not told.
int kolt_get_dhcp_ifname(char *name);

// Write the MAC (6 bytes) of the central access point, or of this node's parent; 1, or 0 when it is not told.
int kolt_get_cap_mac(uint8_t *mac);
int kolt_get_parent_mac(uint8_t *mac);

// 1 when the link of type `link` (0..4) is up, else 0.
int kolt_check_link_state(kolt_link_type link);

// 1 when the central access point has a power-line link, else 0.
int kolt_check_cap_has_plc();

// Whether power-line carries broadcast: never claimed, always 0.
int kolt_is_plc_bcast_capable();

// 1 when the access point that the Wi-Fi link `link` is associated with is the central one, else 0.
int kolt_check_rootap_is_cap(kolt_link_type link, const uint8_t *cap_mac);

// 1 when any Wi-Fi link is associated with the central access point, else 0.
int kolt_check_direct_connect_cap();

// 1 when this node's parent is the central access point, judged on the texts; also when the node cannot tell.
int kolt_is_direct_connect_ap();

// Stores the number of mesh devices, modulo 256; 1, or 0 with the count untouched when it is not told.
int kolt_get_mesh_dev_num(uint8_t *count);

// Copies the LAN gateway's dotted IPv4 address into 16 bytes, unterminated when it fills them; 1, or 0.
int kolt_get_lan_gw_ip(char *text);
