// Hardware addresses of this node's interfaces and of the LAN gateway.
#pragma once

#include <cstdint>

// Writes the hardware address of an interface; 1, or 0 after a message.
int kolt_get_bridge_mac(const char *ifname, uint8_t *mac);

// These two serve whoever wants to know the gateway, which nothing in the daemon does so far.
//
// Writes the MAC that the kernel's ARP table has on the LAN bridge for a dotted IPv4 address; 1, or 0.
int kolt_get_gw_mac_from_arp(const char *ip, uint8_t *mac);

// Writes the LAN gateway's MAC; 1, or 0 with `mac` untouched.
int kolt_get_gw_mac(uint8_t *mac);
