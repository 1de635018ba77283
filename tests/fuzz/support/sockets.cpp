// A pair is two datagram sockets, which keep what is sent apart as netlink does.
#include "support/sockets.h"

#include <array>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

extern "C" {
int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol);
int __wrap_bind(int fd, const sockaddr *address, socklen_t size);
int __wrap_setsockopt(int fd, int level, int option, const void *value, socklen_t size);
ssize_t __wrap_sendto(int fd, const void *data, size_t size, int flags, const sockaddr *address, socklen_t length);
}

int sockets_requests;

namespace {

constexpr int REQUESTS = 52;
constexpr int PROTOCOLS = 64;

std::array<int, PROTOCOLS> far_ends = [] {
    std::array<int, PROTOCOLS> none{};
    none.fill(-1);
    return none;
}();
std::vector<uint8_t> answer;

} // namespace

bool sockets_deliver(int protocol, bytes datagram) {
    return send(far_ends[static_cast<size_t>(protocol)], datagram.data(), datagram.size(), MSG_DONTWAIT) ==
           static_cast<ssize_t>(datagram.size());
}

void sockets_answer_requests(bytes reply) {
    answer.assign(reply.begin(), reply.end());
}

int __wrap_socket(int domain, int type, int protocol) {
    if (domain != AF_NETLINK)
        return __real_socket(domain, type, protocol);
    require(protocol >= 0 && protocol < PROTOCOLS && (type & SOCK_CLOEXEC) != 0);
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends) == 0);
    int &far_end = far_ends[static_cast<size_t>(protocol)];
    if (far_end >= 0)
        close(far_end);
    far_end = ends[1];
    return ends[0];
}

int __wrap_bind(int /*fd*/, const sockaddr *address, socklen_t size) {
    require(size == sizeof(sockaddr_nl) && address->sa_family == AF_NETLINK);
    return 0;
}

// Sizes of buffers and options of netlink.
int __wrap_setsockopt(int /*fd*/, int /*level*/, int /*option*/, const void *value, socklen_t size) {
    (void)copy_of({static_cast<const uint8_t *>(value), size});
    return 0;
}

// A request is answered at once: it is waited for up to a second otherwise.
ssize_t __wrap_sendto(int /*fd*/, const void *data, size_t size, int /*flags*/, const sockaddr * /*address*/,
                      socklen_t /*length*/) {
    (void)copy_of({static_cast<const uint8_t *>(data), size});
    sockets_requests++;
    require(sockets_deliver(REQUESTS, answer));
    return static_cast<ssize_t>(size);
}
