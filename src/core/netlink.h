// Netlink: the three watched sockets of the hub, and one-shot requests to the kernel.
#pragma once

#include <cstddef>
#include <cstdint>

#include <linux/netlink.h>

struct config;
struct kolt_event_ctx;

constexpr int KOLT_NETLINK_BRIDGE = 39;
constexpr int KOLT_NETLINK_REQUEST = 52;
constexpr int KOLT_NETLINK_NEIGHBOUR = 53;

constexpr size_t KOLT_NETLINK_BUFFER_SIZE = 16384; // the largest datagram that a watched socket takes
constexpr size_t KOLT_NOTIFY_SIZE = 32;            // bytes of a notify record

// Each opens, binds and watches one socket. They end the process on any failure.
void event_bridge_init(kolt_event_ctx *ev);
void event_wifi_init(kolt_event_ctx *ev);
void event_neighbor_init(kolt_event_ctx *ev);

// Registers this process as the receiver of the events of every active bridge; a refusal is logged.
void event_bridge_set_event(config *config);

// Acts on one link notification, complete and at least a netlink header long: a Wi-Fi station that expired on a
// backhaul path makes the bridges forget their stream placement and the path's forwarding entries.
void nl_wifi_newlink_handle(const nlmsghdr *message);

// Flushes the HA table of every active loop-avoiding bridge.
void wifi_flush_ha_table(config *config);

// Sends a request of `payload_length` bytes and waits up to one second for the reply, which overwrites it. `buffer`
// holds room for the 16-byte header, zeroed, then the payload, padded to a multiple of 4. 1 when any reply came, else
// 0; only a missing reply is not logged.
int kolt_netlink_msg(uint16_t type, void *buffer, uint32_t payload_length, int protocol);

// Tells the kernel of a stream's new path with a record of KOLT_NOTIFY_SIZE bytes; the result of kolt_netlink_msg.
int kolt_send_notify_msg(const void *record);
