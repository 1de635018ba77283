// Netlink protocols that a stock kernel lacks, faked under socket(), bind() and sendto(): each socket of protocol 39,
// 52 or 53 becomes one end of a datagram socket pair, and the test holds the other end.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct fake_netlink {
    // The sockets opened, in order: "socket(16, 3, 39)" with the close-on-exec flag taken off; what was bound:
    // "bind(39, pid 4711, groups 0)" with "own" for this process's id.
    std::vector<std::string> calls;

    // What was sent on protocol 52, with the destination's port id and groups.
    struct sent {
        std::string bytes;
        uint32_t pid;
        uint32_t groups;
        int status_flags; // of the socket (F_GETFL) at that moment
    };
    std::vector<sent> requests;

    // The socket options set on these protocols, in order: "SO_SNDBUFFORCE 20".
    std::vector<std::string> options;

    // What answers a request on 52: the next of these, or a copy of the request when there is none.
    std::deque<std::string> replies;
    bool silent = false;              // no answer at all
    std::function<void()> at_request; // what happens while a request on 52 waits for its answer

    // errno values that calls fail with, by protocol (netlink route is 0).
    std::map<int, int> socket_errors;
    std::map<int, int> bind_errors;
    int sendto_error = 0;
    int setsockopt_error = 0; // for the option below
    int setsockopt_option = 0;
    int fcntl_error = 0;     // for F_SETFL
    bool unpollable = false; // sockets are regular files, which the event loop refuses

    // By protocol, one that the kernel has: the socket is the kernel's own, and all else as if it had the other.
    std::map<int, int> instead;

    // The sockets of other families that were opened, in order, and the packets that were sent on raw ones (AF_PACKET),
    // each with its destination record. The next sends of packets return these results without sending anything.
    struct opened {
        int domain;
        int type; // with its flags
        int protocol;
        bool operator==(const opened &) const = default;
    };
    std::vector<opened> other_sockets;
    struct packet {
        std::string address;
        std::string bytes;
    };
    std::vector<packet> packets;
    std::deque<int> packet_results;

    // Sends a datagram to the code's newest socket of a protocol.
    void deliver(int protocol, const std::string &datagram) const;

    ~fake_netlink();
    std::map<int, int> peers;     // by protocol, for the fake's own use
    std::map<int, int> protocols; // by descriptor of the code under test
};

extern fake_netlink netlink;

// Closes what the test's end holds and starts afresh.
void reset_netlink();
