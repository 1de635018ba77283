/*
 * Netlink as the node's kernel would offer it. socket, bind and sendto stand before libc's in symbol lookup; for the
 * protocols that a stock kernel lacks they lead to datagram sockets of the node, and everything else goes on to libc.
 *
 * Port PID of protocol PROTO is the abstract address "kolt-node.PROTO.PID", and PID 0 is the node's kernel. Abstract
 * addresses belong to the network namespace and vanish with the descriptor, so a daemon that dies leaves nothing
 * behind, and close, recv, poll and fcntl need no help. setsockopt needs a little: a node without root may not force
 * buffer sizes, where a daemon on a real node may.
 */
#include "journal.h"
#include "script.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <linux/if_packet.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/un.h>

#define INTERPOSED extern "C" [[gnu::visibility("default")]]

namespace {

constexpr int DESCRIPTORS = 1024;
constexpr int TYPE_FLAGS = SOCK_CLOEXEC | SOCK_NONBLOCK;
constexpr size_t SHOWN_BYTES = 512;

// Protocol + 1 of each descriptor that came from a netlink socket call; 0 for all others.
uint8_t protocols[DESCRIPTORS];

template <typename function> function *next(function **cached, const char *name) {
    if (*cached == nullptr) {
        *cached = reinterpret_cast<function *>(dlsym(RTLD_NEXT, name));
    }
    return *cached;
}

using socket_fn = int(int, int, int);
using bind_fn = int(int, const sockaddr *, socklen_t);
using setsockopt_fn = int(int, int, int, const void *, socklen_t);
using sendto_fn = ssize_t(int, const void *, size_t, int, const sockaddr *, socklen_t);

socket_fn *libc_socket;
bind_fn *libc_bind;
setsockopt_fn *libc_setsockopt;
sendto_fn *libc_sendto;

bool is_simulated(int protocol) {
    return protocol == 39 || protocol == 52 || protocol == 53;
}

// The scripted-failure name of a call on a socket family; false for families that are never scripted.
bool failure_name(char (&name)[32], const char *call, int domain, int protocol) {
    switch (domain) {
    case AF_NETLINK:
        (void)snprintf(name, sizeof(name), "%s:%d", call, protocol);
        return true;
    case AF_PACKET:
        (void)snprintf(name, sizeof(name), "%s:packet", call);
        return true;
    case AF_INET:
        (void)snprintf(name, sizeof(name), "%s:inet", call);
        return true;
    default:
        return false;
    }
}

// Sets errno to the scripted result and is true when the call is to fail.
bool fails(const char *call, int domain, int protocol) {
    char name[32];
    int error = 0;
    if (!failure_name(name, call, domain, protocol) || !scripted_failure(name, nullptr, &error)) {
        return false;
    }
    errno = error;
    return true;
}

void remember(int fd, int protocol) {
    if (fd >= 0 && fd < DESCRIPTORS) {
        protocols[fd] = static_cast<uint8_t>(protocol + 1);
    }
}

// The netlink protocol of a descriptor, or -1. The table may be behind the times, since close is not watched.
int protocol_of(int fd) {
    return fd >= 0 && fd < DESCRIPTORS ? protocols[fd] - 1 : -1;
}

bool is_unix(int fd) {
    int saved = errno;
    int domain = 0;
    socklen_t size = sizeof(domain);
    bool known = getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0;
    errno = saved;
    return known && domain == AF_UNIX;
}

bool is_netlink_address(const sockaddr *address, socklen_t size) {
    return address != nullptr && size >= sizeof(sockaddr_nl) && address->sa_family == AF_NETLINK;
}

sockaddr_nl netlink_address(const sockaddr *address) {
    sockaddr_nl copy;
    memcpy(&copy, address, sizeof(copy));
    return copy;
}

socklen_t node_address(sockaddr_un *address, int protocol, uint32_t port) {
    *address = {};
    address->sun_family = AF_UNIX;
    int length = snprintf(address->sun_path + 1, sizeof(address->sun_path) - 1, "kolt-node.%d.%u", protocol, port);
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<size_t>(length));
}

// A socket that was never bound, or whose bind was refused, gets an address of the kernel's choice, as in netlink.
void bind_anywhere(int fd) {
    int saved = errno;
    sockaddr_un own{};
    socklen_t size = sizeof(own);
    bool bound = getsockname(fd, reinterpret_cast<sockaddr *>(&own), &size) == 0 && size > sizeof(sa_family_t);
    if (!bound) {
        own.sun_family = AF_UNIX;
        (void)next(&libc_bind, "bind")(fd, reinterpret_cast<const sockaddr *>(&own), sizeof(sa_family_t));
    }
    errno = saved;
}

int open_socket(int domain, int type, int protocol) {
    socket_fn *libc = next(&libc_socket, "socket");
    if (domain != AF_NETLINK || !is_simulated(protocol) || !node_exists()) {
        return libc(domain, type, protocol);
    }
    int fd = libc(AF_UNIX, SOCK_DGRAM | (type & TYPE_FLAGS), 0);
    remember(fd, protocol);
    return fd;
}

ssize_t send_to_node(int fd, const void *data, size_t size, int flags, const sockaddr_nl &to) {
    sockaddr_un address;
    socklen_t length = node_address(&address, protocol_of(fd), to.nl_pid);
    bind_anywhere(fd);
    return next(&libc_sendto, "sendto")(fd, data, size, flags, reinterpret_cast<const sockaddr *>(&address), length);
}

void describe_netlink(journal_line &line, int protocol, const sockaddr_nl &to, const void *data, size_t size) {
    line.number("protocol", protocol).number("port", to.nl_pid).number("size", static_cast<long long>(size));
    if (size >= sizeof(nlmsghdr)) {
        nlmsghdr header;
        memcpy(&header, data, sizeof(header));
        line.number("type", header.nlmsg_type).number("length", header.nlmsg_len);
        line.number("flags", header.nlmsg_flags).number("pid", header.nlmsg_pid);
        line.bytes("payload", static_cast<const char *>(data) + sizeof(header), size - sizeof(header));
    }
}

void describe_frame(journal_line &line, const sockaddr *address, const void *data, size_t size) {
    sockaddr_ll to;
    memcpy(&to, address, sizeof(to));
    line.text("protocol", "packet").number("ifindex", to.sll_ifindex).mac("destination", to.sll_addr);
    line.number("size", static_cast<long long>(size)).bytes("frame", data, size < SHOWN_BYTES ? size : SHOWN_BYTES);
}

} // namespace

INTERPOSED int socket(int domain, int type, int protocol) noexcept {
    if (domain != AF_NETLINK && domain != AF_PACKET && domain != AF_INET) {
        return next(&libc_socket, "socket")(domain, type, protocol);
    }
    bool scripted = fails("socket", domain, protocol);
    int fd = scripted ? -1 : open_socket(domain, type, protocol);
    if (domain == AF_NETLINK) {
        remember(fd, protocol);
        journal_line line("socket");
        line.number("protocol", protocol).number("type", type).result(fd);
    }
    return fd;
}

INTERPOSED int bind(int fd, const sockaddr *address, socklen_t size) noexcept {
    bind_fn *libc = next(&libc_bind, "bind");
    int protocol = protocol_of(fd);
    if (protocol < 0 || !is_netlink_address(address, size)) {
        return libc(fd, address, size);
    }
    sockaddr_nl wanted = netlink_address(address);
    int result = -1;
    if (!fails("bind", AF_NETLINK, protocol)) {
        sockaddr_un own;
        socklen_t length = node_address(&own, protocol, wanted.nl_pid);
        bool simulated = is_simulated(protocol) && is_unix(fd);
        result = simulated ? libc(fd, reinterpret_cast<const sockaddr *>(&own), length) : libc(fd, address, size);
    }
    journal_line line("bind");
    line.number("protocol", protocol).number("pid", wanted.nl_pid).number("groups", wanted.nl_groups);
    return line.result(result);
}

INTERPOSED int setsockopt(int fd, int level, int option, const void *value, socklen_t size) noexcept {
    setsockopt_fn *libc = next(&libc_setsockopt, "setsockopt");
    int result = libc(fd, level, option, value, size);
    bool forced = level == SOL_SOCKET && (option == SO_SNDBUFFORCE || option == SO_RCVBUFFORCE);
    if (result == 0 || errno != EPERM || !forced || !is_simulated(protocol_of(fd)) || !is_unix(fd)) {
        return result;
    }
    return libc(fd, level, option == SO_SNDBUFFORCE ? SO_SNDBUF : SO_RCVBUF, value, size);
}

INTERPOSED ssize_t sendto(int fd, const void *data, size_t size, int flags, const sockaddr *address, socklen_t length) {
    sendto_fn *libc = next(&libc_sendto, "sendto");
    bool netlink = is_netlink_address(address, length) && is_simulated(protocol_of(fd)) && is_unix(fd);
    bool packet = address != nullptr && length >= sizeof(sockaddr_ll) && address->sa_family == AF_PACKET;
    if (!netlink && !packet) {
        return libc(fd, data, size, flags, address, length);
    }
    journal_line line("sendto");
    ssize_t result = -1;
    if (netlink) {
        sockaddr_nl to = netlink_address(address);
        describe_netlink(line, protocol_of(fd), to, data, size);
        result = fails("sendto", AF_NETLINK, protocol_of(fd)) ? -1 : send_to_node(fd, data, size, flags, to);
    } else {
        describe_frame(line, address, data, size);
        result = fails("sendto", AF_PACKET, 0) ? -1 : libc(fd, data, size, flags, address, length);
    }
    line.result(static_cast<int>(result));
    return result;
}
