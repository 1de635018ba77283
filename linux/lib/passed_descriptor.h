// The descriptor that comes with a record, on either side of the socket.
#pragma once

#include "core/handle.h"

#include <cstring>
#include <sys/socket.h>

// The one descriptor that a received message brought, which is the caller's from then on; none when it brought none, or
// something else. The message's control buffer must have room for one only: the kernel closes the others.
inline unique_fd take_descriptor(msghdr *header) {
    const cmsghdr *control = CMSG_FIRSTHDR(header);
    if (control == nullptr || control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_RIGHTS ||
        control->cmsg_len != CMSG_LEN(sizeof(int)))
        return unique_fd();
    int fd;
    memcpy(&fd, CMSG_DATA(control), sizeof fd);
    return unique_fd(fd);
}
