// The listening socket, and who may use it.
#pragma once

#include "core/handle.h"

#include <sys/types.h>

struct client_listener {
    unique_fd fd{-1};
    gid_t group = static_cast<gid_t>(-1); // of the clients that are not root; -1 for none
};

// Listens at `path` for root and, where it exists, group kolt. A socket that nobody listens on any more is replaced.
// Without a descriptor, and with errno set, on failure.
client_listener listen_for_clients(const char *path);

// Whether the peer of a connection is root or a member of that group.
bool peer_is_allowed(int fd, gid_t group);
