// Any bytes as what the kernel tells of an interface's queueing disciplines and of the filters on its hooks: a datagram
// after the other, of 16 bits of length each. The first question that is answered takes what it takes, the next one
// goes on from there.
#include "kernel/hooks.h"
#include "support/input.h"

#include <cerrno>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <string_view>

extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
mnl_socket *__wrap_mnl_socket_open2(int bus, int flags);
int __wrap_mnl_socket_close(mnl_socket *socket);
int __wrap_mnl_socket_bind(mnl_socket *socket, unsigned groups, pid_t pid);
unsigned __wrap_mnl_socket_get_portid(const mnl_socket *socket);
ssize_t __wrap_mnl_socket_sendto(const mnl_socket *socket, const void *request, size_t size);
ssize_t __wrap_mnl_socket_recvfrom(const mnl_socket *socket, void *buffer, size_t size);
int __real_mnl_cb_run(const void *datagram, size_t size, unsigned sequence, unsigned port, mnl_cb_t see, void *data);
int __wrap_mnl_cb_run(const void *datagram, size_t size, unsigned sequence, unsigned port, mnl_cb_t see, void *data);
}

namespace {

constexpr uint32_t IFINDEX = 4; // of the recorded messages
constexpr unsigned PORT = 77;

fuzz_input kernel;
int open_sockets;

mnl_socket *only_socket() {
    static char place;
    return reinterpret_cast<mnl_socket *>(&place); // nobody looks into it
}

} // namespace

mnl_socket *__wrap_mnl_socket_open2(int bus, int /*flags*/) {
    require(bus == NETLINK_ROUTE);
    open_sockets++;
    return only_socket();
}

int __wrap_mnl_socket_close(mnl_socket * /*socket*/) {
    open_sockets--;
    return 0;
}

int __wrap_mnl_socket_bind(mnl_socket * /*socket*/, unsigned /*groups*/, pid_t /*pid*/) {
    return 0;
}

unsigned __wrap_mnl_socket_get_portid(const mnl_socket * /*socket*/) {
    return PORT;
}

ssize_t __wrap_mnl_socket_sendto(const mnl_socket * /*socket*/, const void *request, size_t size) {
    require(static_cast<const nlmsghdr *>(request)->nlmsg_len == size);
    return static_cast<ssize_t>(size);
}

ssize_t __wrap_mnl_socket_recvfrom(const mnl_socket * /*socket*/, void *buffer, size_t size) {
    const bool silent = kernel.left.empty();
    const bytes datagram = kernel.part();
    if (silent || datagram.size() > size) {
        errno = silent ? EAGAIN : ENOSPC;
        return -1;
    }
    std::copy(datagram.begin(), datagram.end(), static_cast<uint8_t *>(buffer));
    return static_cast<ssize_t>(datagram.size());
}

// The datagram in a block of its own: the buffer goes on behind it.
int __wrap_mnl_cb_run(const void *datagram, size_t size, unsigned sequence, unsigned port, mnl_cb_t see, void *data) {
    const auto alone = copy_of({static_cast<const uint8_t *>(datagram), size});
    return __real_mnl_cb_run(alone.get(), size, sequence, port, see, data);
}

// Nothing is found that the kernel did not name.
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view said(reinterpret_cast<const char *>(data), size);
    for (const auto direction : {kolt_direction::INGRESS, kolt_direction::EGRESS}) {
        kernel.left = {data, size};
        const bool attached = clsact_attached(IFINDEX, direction);
        require(!attached || said.find(kolt_program_name(direction)) != std::string_view::npos);
        kernel.left = {data, size};
        kolt_other_program first;
        const size_t others = clsact_others(IFINDEX, direction, &first);
        const size_t length = strnlen(first.name, sizeof first.name);
        require(length < sizeof first.name && (others != 0 || length == 0));
        require(said.find(std::string_view(first.name, length)) != std::string_view::npos);
        require(others == 0 || said.find("clsact") != std::string_view::npos);
    }
    require(open_sockets == 0);
    return 0;
}
