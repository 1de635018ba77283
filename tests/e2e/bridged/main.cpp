// A kolt-bridged of a simulated node: the real server, with the node's files and sockets behind it. What the node sends
// to a daemon's netlink port comes here and goes on as an event; requests of protocol 52 go on to the node's kernel.
#include "bridged/requests/loop.h"
#include "bridged/requests/server.h"
#include "core/container_of.h"
#include "core/handle.h"
#include "handlers.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace {

constexpr size_t MAX_PORTS = 16;
constexpr size_t LONGEST_DATAGRAM = 65536;

struct netlink_port {
    uloop_fd watcher;
    int32_t protocol;
};

struct stub {
    requests_server *server = nullptr;
    netlink_port ports[MAX_PORTS] = {};
    size_t port_count = 0;
};

struct node_address {
    sockaddr_un address{};
    socklen_t size = 0;

    node_address(int32_t protocol, int32_t port) {
        address.sun_family = AF_UNIX;
        const int length =
            snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "kolt-node.%d.%d", protocol, port);
        size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<size_t>(length));
    }
    [[nodiscard]] const sockaddr *get() const {
        return reinterpret_cast<const sockaddr *>(&address);
    }
};

stub self;

void forward_event(uloop_fd *watcher, unsigned int /*events*/) {
    const netlink_port *port = KOLT_CONTAINER_OF(watcher, netlink_port, watcher);
    alignas(nlmsghdr) static char datagram[LONGEST_DATAGRAM];
    const ssize_t size = recv(watcher->fd, datagram, sizeof datagram, MSG_DONTWAIT);
    if (size < NLMSG_HDRLEN)
        return;
    nlmsghdr header;
    memcpy(&header, datagram, sizeof header);
    (void)requests_send_event(self.server, port->protocol, header.nlmsg_type, datagram + sizeof header,
                              static_cast<size_t>(size) - sizeof header);
}

// The name is taken already when a daemon's socket came back.
void open_port(void * /*context*/, int32_t protocol, int32_t pid) {
    unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const node_address address(protocol, pid);
    if (self.port_count == MAX_PORTS || bind(fd.get(), address.get(), address.size) != 0)
        return;
    netlink_port &port = self.ports[self.port_count++];
    port.protocol = protocol;
    port.watcher.cb = forward_event;
    port.watcher.fd = fd.release();
    if (uloop_fd_add(&port.watcher, ULOOP_READ) != 0)
        abort();
}

int forward_request(uint16_t type, uint32_t pid, const void *payload, size_t size) {
    struct {
        nlmsghdr header;
        char payload[sizeof(moved_stream_record)];
    } message{};
    message.header.nlmsg_len = static_cast<uint32_t>(sizeof message.header + size);
    message.header.nlmsg_type = type;
    message.header.nlmsg_pid = pid;
    memcpy(message.payload, payload, size);
    const unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const node_address kernel(PROTOCOL_REQUESTS, 0);
    const ssize_t sent = sendto(fd.get(), &message, message.header.nlmsg_len, 0, kernel.get(), kernel.size);
    return sent > 0 ? 0 : -1;
}

int register_neighbours(void * /*context*/, int32_t pid) {
    return forward_request(NETLINK_REGISTER_NEIGHBOURS, static_cast<uint32_t>(pid), &pid, sizeof pid);
}

int moved_stream(void * /*context*/, const moved_stream_record &stream) {
    return forward_request(NETLINK_MOVED_STREAM, 0, &stream, sizeof stream);
}

} // namespace

int main() {
    request_handlers handlers = node_handlers(&self);
    handlers.event_socket_added = open_port;
    handlers.register_neighbours = register_neighbours;
    handlers.moved_stream = moved_stream;
    (void)mkdir(KOLT_BRIDGED_RUN, 0755); // there already when this is not the first one
    if (uloop_init() != 0)
        return EXIT_FAILURE;
    self.server = requests_open(KOLT_BRIDGED_SOCKET, handlers);
    if (self.server == nullptr) {
        perror(KOLT_BRIDGED_SOCKET);
        return EXIT_FAILURE;
    }
    (void)puts("ready");
    (void)fflush(stdout);
    (void)uloop_run();
    requests_close(self.server);
    uloop_done();
    return EXIT_SUCCESS;
}
