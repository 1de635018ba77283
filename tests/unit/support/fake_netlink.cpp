// The C library's socket calls, in front of its own.
#include "support/fake_netlink.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

fake_netlink netlink;

namespace {

template <class Function> Function *next(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

int fail_with(int error) {
    errno = error;
    return -1;
}

bool is_faked(int protocol) {
    return (protocol == 39 || protocol == 52 || protocol == 53) && netlink.instead.count(protocol) == 0;
}

int open_pair(int type, int protocol) {
    if (netlink.unpollable)
        return memfd_create("unpollable", MFD_CLOEXEC);
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_DGRAM | (type & SOCK_CLOEXEC), 0, ends) != 0)
        return -1;
    if (netlink.peers.count(protocol) != 0)
        close(netlink.peers[protocol]);
    netlink.peers[protocol] = ends[1];
    netlink.protocols[ends[0]] = protocol;
    return ends[0];
}

bool is_forced_size(int level, int option) {
    return level == SOL_SOCKET && (option == SO_SNDBUFFORCE || option == SO_RCVBUFFORCE);
}

std::string option_name(int level, int option) {
    if (is_forced_size(level, option))
        return option == SO_SNDBUFFORCE ? "SO_SNDBUFFORCE" : "SO_RCVBUFFORCE";
    return std::to_string(level) + "/" + std::to_string(option);
}

std::string int_value(const void *value, socklen_t size) {
    int number = 0;
    if (size != sizeof number)
        return "of " + std::to_string(size) + " bytes";
    memcpy(&number, value, sizeof number);
    return std::to_string(number);
}

// Records a raw packet; true when its sending is scripted.
bool record_packet(const sockaddr *address, socklen_t address_size, const void *bytes, size_t size) {
    netlink.packets.push_back(
        {{reinterpret_cast<const char *>(address), address_size}, {static_cast<const char *>(bytes), size}});
    return !netlink.packet_results.empty();
}

int packet_result() {
    const int result = netlink.packet_results.front();
    netlink.packet_results.pop_front();
    return result;
}

void answer(int protocol, const std::string &request) {
    if (netlink.silent)
        return;
    std::string reply = request;
    if (!netlink.replies.empty()) {
        reply = netlink.replies.front();
        netlink.replies.pop_front();
    }
    netlink.deliver(protocol, reply);
}

} // namespace

void fake_netlink::deliver(int protocol, const std::string &datagram) const {
    const auto peer = peers.find(protocol);
    if (peer == peers.end() || send(peer->second, datagram.data(), datagram.size(), MSG_DONTWAIT) < 0)
        throw std::runtime_error("no socket of this protocol takes a datagram");
}

fake_netlink::~fake_netlink() {
    for (const auto &[protocol, fd] : peers)
        close(fd);
}

void reset_netlink() {
    netlink.~fake_netlink();
    new (&netlink) fake_netlink{};
}

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
    if (domain != AF_NETLINK) {
        netlink.other_sockets.push_back({domain, type, protocol});
        return next<int(int, int, int)>("socket")(domain, type, protocol);
    }
    netlink.calls.push_back("socket(" + std::to_string(domain) + ", " + std::to_string(type & ~SOCK_CLOEXEC) + ", " +
                            std::to_string(protocol) + ")");
    if (const auto error = netlink.socket_errors.find(protocol); error != netlink.socket_errors.end())
        return fail_with(error->second);
    if (is_faked(protocol) || netlink.unpollable)
        return open_pair(type, protocol);
    const auto other = netlink.instead.find(protocol);
    const int opened = other != netlink.instead.end() ? other->second : protocol;
    const int fd = next<int(int, int, int)>("socket")(domain, type, opened);
    netlink.protocols[fd] = protocol;
    return fd;
}

int bind(int fd, const sockaddr *address, socklen_t size) noexcept {
    if (address->sa_family != AF_NETLINK)
        return next<int(int, const sockaddr *, socklen_t)>("bind")(fd, address, size);
    sockaddr_nl bound{};
    memcpy(&bound, address, sizeof bound);
    const int protocol = netlink.protocols[fd];
    const std::string pid = bound.nl_pid == static_cast<uint32_t>(getpid()) ? "own" : std::to_string(bound.nl_pid);
    netlink.calls.push_back("bind(" + std::to_string(protocol) + ", pid " + pid + ", groups " +
                            std::to_string(bound.nl_groups) + ")");
    if (const auto error = netlink.bind_errors.find(protocol); error != netlink.bind_errors.end())
        return fail_with(error->second);
    if (is_faked(protocol) || netlink.unpollable)
        return 0;
    return next<int(int, const sockaddr *, socklen_t)>("bind")(fd, address, size);
}

ssize_t sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *address, socklen_t address_size) {
    if (address != nullptr && address->sa_family == AF_PACKET && record_packet(address, address_size, bytes, size))
        return packet_result();
    if (address == nullptr || address->sa_family != AF_NETLINK)
        return next<ssize_t(int, const void *, size_t, int, const sockaddr *, socklen_t)>("sendto")(
            fd, bytes, size, flags, address, address_size);
    if (netlink.sendto_error != 0)
        return fail_with(netlink.sendto_error);
    sockaddr_nl target{};
    memcpy(&target, address, sizeof target);
    const std::string request(static_cast<const char *>(bytes), size);
    netlink.requests.push_back(
        {request, target.nl_pid, target.nl_groups, static_cast<int>(syscall(SYS_fcntl, fd, F_GETFL))});
    if (netlink.at_request)
        netlink.at_request();
    answer(netlink.protocols[fd], request);
    return static_cast<ssize_t>(size);
}

int setsockopt(int fd, int level, int option, const void *value, socklen_t size) noexcept {
    const auto socket = netlink.protocols.find(fd);
    const bool recorded = socket != netlink.protocols.end();
    if (recorded)
        netlink.options.push_back(option_name(level, option) + " " + int_value(value, size));
    if (netlink.setsockopt_error != 0 && option == netlink.setsockopt_option)
        return fail_with(netlink.setsockopt_error);
    if (recorded && is_faked(socket->second) && is_forced_size(level, option))
        return 0; // the kernel wants a privilege for it, and the size is of no use here
    return next<int(int, int, int, const void *, socklen_t)>("setsockopt")(fd, level, option, value, size);
}

int fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    if (netlink.fcntl_error != 0 && command == F_SETFL)
        return fail_with(netlink.fcntl_error);
    return static_cast<int>(syscall(SYS_fcntl, fd, command, argument));
}
}
