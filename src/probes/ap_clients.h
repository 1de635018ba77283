// The clients of this node's access point, as their management daemon lists them.
#pragma once

#include "core/names.h"

#include <cstddef>
#include <cstdint>

constexpr size_t KOLT_MAX_AP_CLIENTS = 255; // as many as the count can tell

struct kolt_ap_client_list {
    uint8_t count = 0;
    uint8_t macs[KOLT_MAX_AP_CLIENTS][KOLT_MAC_SIZE] = {};
};

// Fills the list in the file's order, at most 255 clients; 1, or 0 with the list untouched when there is no valid file.
int kolt_get_ap_client_list(kolt_ap_client_list *list);

// 1 when `mac` is in the list, else 0.
int kolt_check_mac_in_ap_client_list(const kolt_ap_client_list *list, const uint8_t *mac);
