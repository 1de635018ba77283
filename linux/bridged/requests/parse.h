// What clients send, read strictly: a message is what it should be to the last byte, or it is nothing.
#pragma once

#include "lib/records.h"
#include "lib/requests.h"

#include <linux/netlink.h>

constexpr size_t LONGEST_MESSAGE = sizeof(call_request); // that a client may send

// A message of protocol 52. One of an unknown type has no payload here, whatever it carries.
struct netlink_request {
    nlmsghdr header;
    union {
        uint32_t pid;               // of NETLINK_REGISTER_NEIGHBOURS
        moved_stream_record stream; // of NETLINK_MOVED_STREAM
    };
};

// Reads the first message of a connection; false when the client does not speak this version.
bool read_hello(const void *message, size_t size, connection_kind *kind);

// Reads a call. A descriptor comes with the call that hands one over, and with no other.
bool read_call(const void *message, size_t size, bool has_descriptor, call_request *request);

// Reads a message of protocol 52.
bool read_netlink_request(const void *message, size_t size, netlink_request *request);
