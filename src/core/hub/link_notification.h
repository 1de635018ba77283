// Link notifications: a Wi-Fi station that expired on a backhaul path.
#pragma once

struct config;
struct nlmsghdr;

// Acts on one link notification, complete and at least a netlink header long: a Wi-Fi station that expired on a
// backhaul path makes the bridges forget their stream placement and the path's forwarding entries.
void nl_wifi_newlink_handle(const nlmsghdr *message);

// Flushes the HA table of every active loop-avoiding bridge.
void wifi_flush_ha_table(config *config);
