/*
 * Netlink protocols 39, 52 and 53, which a stock kernel lacks. socket, bind, sendto and setsockopt stand before libc's
 * in symbol lookup; for those protocols they lead to kolt-bridged, and everything else goes on to libc. recv, poll,
 * fcntl and close then work on the descriptors as they are.
 *
 * No list of descriptors is kept: nobody but a user of these protocols gives a unix socket a netlink address.
 */
#include "lib/connection.h"
#include "lib/event_sockets.h"

#include <cerrno>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#define INTERPOSED extern "C" [[gnu::visibility("default")]]

namespace {

constexpr int TYPE_FLAGS = SOCK_CLOEXEC | SOCK_NONBLOCK;

using socket_fn = int(int, int, int);
using bind_fn = int(int, const sockaddr *, socklen_t);
using setsockopt_fn = int(int, int, int, const void *, socklen_t);
using sendto_fn = ssize_t(int, const void *, size_t, int, const sockaddr *, socklen_t);

socket_fn *libc_socket;
bind_fn *libc_bind;
setsockopt_fn *libc_setsockopt;
sendto_fn *libc_sendto;

template <typename function> function *next(function **cached, const char *name) {
    if (*cached == nullptr)
        *cached = reinterpret_cast<function *>(dlsym(RTLD_NEXT, name));
    return *cached;
}

bool is_missing_protocol(int domain, int type, int protocol) {
    const int kind = type & ~TYPE_FLAGS;
    return domain == AF_NETLINK && (kind == SOCK_RAW || kind == SOCK_DGRAM) &&
           (protocol == PROTOCOL_BRIDGE_EVENTS || protocol == PROTOCOL_REQUESTS || protocol == PROTOCOL_NEIGHBOURS);
}

bool is_unix(int fd) {
    const int saved = errno;
    int domain = 0;
    socklen_t size = sizeof domain;
    const bool known = getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0;
    errno = saved;
    return known && domain == AF_UNIX;
}

bool leads_to_kolt_bridged(int fd, const sockaddr *address, socklen_t size) {
    return address != nullptr && size >= sizeof(sockaddr_nl) && address->sa_family == AF_NETLINK && is_unix(fd);
}

// The connection that requests of protocol 52 go over.
int open_request_socket(int flags) {
    unique_fd fd = bridged_connect(CONNECTION_NETLINK_REQUESTS);
    const bool flagged = fd && ((flags & SOCK_CLOEXEC) != 0 || fcntl(fd.get(), F_SETFD, 0) == 0) &&
                         ((flags & SOCK_NONBLOCK) == 0 || fcntl(fd.get(), F_SETFL, O_RDWR | O_NONBLOCK) == 0);
    if (!flagged) {
        errno = EPROTONOSUPPORT;
        return -1;
    }
    return fd.release();
}

} // namespace

INTERPOSED int socket(int domain, int type, int protocol) noexcept {
    if (!is_missing_protocol(domain, type, protocol))
        return next(&libc_socket, "socket")(domain, type, protocol);
    const int flags = type & TYPE_FLAGS;
    return protocol == PROTOCOL_REQUESTS ? open_request_socket(flags) : open_event_socket(protocol, flags);
}

// Its address is the process's own affair: whoever opened the socket gets the messages.
INTERPOSED int bind(int fd, const sockaddr *address, socklen_t size) noexcept {
    if (leads_to_kolt_bridged(fd, address, size))
        return 0;
    return next(&libc_bind, "bind")(fd, address, size);
}

INTERPOSED ssize_t sendto(int fd, const void *data, size_t size, int flags, const sockaddr *address, socklen_t length) {
    sendto_fn *libc = next(&libc_sendto, "sendto");
    if (leads_to_kolt_bridged(fd, address, length))
        return libc(fd, data, size, flags, nullptr, 0);
    return libc(fd, data, size, flags, address, length);
}

// To force a buffer's size takes a right over the machine's network, which nobody needs for a socket of one's own.
INTERPOSED int setsockopt(int fd, int level, int option, const void *value, socklen_t size) noexcept {
    setsockopt_fn *libc = next(&libc_setsockopt, "setsockopt");
    const int result = libc(fd, level, option, value, size);
    const bool forced = level == SOL_SOCKET && (option == SO_SNDBUFFORCE || option == SO_RCVBUFFORCE);
    if (result == 0 || errno != EPERM || !forced || !is_unix(fd))
        return result;
    return libc(fd, level, option == SO_SNDBUFFORCE ? SO_SNDBUF : SO_RCVBUF, value, size);
}
