// The sockets that clients have handed over for the events of a protocol.
#pragma once

#include "bridged/requests/server.h"
#include "core/handle.h"

#include <sys/types.h>

struct event_socket {
    unique_fd fd{-1};
    int32_t protocol = 0;
    const void *owner = nullptr; // the connection that it came by
    ino_t inode = 0;             // of the socket: the same one may come by several connections
};

class event_sockets {
public:
    // Takes a datagram socket in. False, and closed, when there is no room or it is no such socket.
    bool add(unique_fd fd, int32_t protocol, const void *owner);

    // Forgets what came by a connection.
    void forget(const void *owner);

    // Sends a netlink message to every socket of a protocol, once to each. A socket without room misses it, one whose
    // other end is gone is forgotten. Returns the number of sockets that took it.
    int send(int32_t protocol, uint16_t type, const void *payload, size_t size);

private:
    void forget_shut_down();
    void remove(int at);
    [[nodiscard]] bool is_repeated(int at) const;

    event_socket sockets_[MAX_EVENT_SOCKETS];
    int count_ = 0;
};
