// One-shot netlink requests to the kernel.
#pragma once

#include <cstddef>
#include <cstdint>

#include <linux/netlink.h>

constexpr int KOLT_NETLINK_REQUEST = 52;
constexpr size_t KOLT_NOTIFY_SIZE = 32; // bytes of a notify record

// How long several requests may wait for their replies in all.
struct kolt_wait_budget {
    int64_t left_ms;
};

// Sends a request of `payload_length` bytes and waits up to one second for the reply, which overwrites it. `buffer`
// holds room for the 16-byte header, zeroed, then the payload, padded to a multiple of 4. 1 when any reply came, else
// 0; only a missing reply is not logged. With a budget, which it lowers, it waits no longer than that allows; a reply
// that is there at once counts even where nothing is left of it.
int kolt_netlink_msg(uint16_t type, void *buffer, uint32_t payload_length, int protocol,
                     kolt_wait_budget *budget = nullptr);

// Tells the kernel of a stream's new path with a record of KOLT_NOTIFY_SIZE bytes; the result of kolt_netlink_msg.
int kolt_send_notify_msg(const void *record, kolt_wait_budget *budget);
