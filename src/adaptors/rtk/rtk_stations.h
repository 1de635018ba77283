// The stations that are associated with an interface, as the Realtek driver tells them.
#pragma once

#include "adaptors/wlan_platform.h"

#include <cstdint>

// Stores the associated stations of `ifname`, at most WLAN_MAX_LINKS, and returns how many; 0 after a message when the
// driver's table cannot be read. `activity` is not filled: the driver has no such figure.
uint8_t wlan_get_links_rtk(const char *ifname, wlan_link *links, kolt_link_type type);
