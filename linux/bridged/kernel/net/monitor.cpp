// Listening to the kernel's groups.
#include "kernel/net/monitor.h"

#include "kernel/net/messages.h"

#include <arpa/inet.h>
#include <cerrno>
#include <linux/filter.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace {

constexpr size_t DATAGRAM_SIZE = 32768;
// A thousand entries that move at once are told one by one.
constexpr int RECEIVE_BUFFER = 4 << 20;
constexpr int DATAGRAMS_PER_TURN = 256;
constexpr int MOST_QUEUED = 65536; // datagrams, more than there is room for

// Keeps the neighbours of IP out, which share a group with the bridges' tables: a busy router has many. The types stand
// in the machine's byte order, and loads take the network's.
int keep_bridges(int fd) {
    const uint16_t learnt = htons(RTM_NEWNEIGH);
    const uint16_t removed = htons(RTM_DELNEIGH);
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offsetof(nlmsghdr, nlmsg_type)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, learnt, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, removed, 0, 2),
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, sizeof(nlmsghdr) + offsetof(ndmsg, ndm_family)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_BRIDGE, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, UINT32_MAX),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog program{.len = sizeof code / sizeof *code, .filter = code};
    return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
}

void enlarge_buffer(int fd) {
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &RECEIVE_BUFFER, sizeof RECEIVE_BUFFER) != 0)
        (void)setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &RECEIVE_BUFFER, sizeof RECEIVE_BUFFER); // an overrun is told
}

int join_groups(int fd) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_NEIGH;
    return bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

// Until the queue is empty the kernel drops what happens, and tells it once only. Somebody may cause changes faster
// than they are read, hence the limit.
void empty_queue(int fd) {
    for (int number = 0; number < MOST_QUEUED; number++) {
        if (recv(fd, nullptr, 0, MSG_DONTWAIT) < 0 && errno != EINTR && errno != ENOBUFS)
            return;
    }
}

void tell(const nlmsghdr &message, const monitor_callbacks &callbacks) {
    link_info link;
    bridge_port port;
    fdb_record record;
    if (link_parse(message, &link))
        callbacks.link(link);
    if (bridge_port_parse(message, &port))
        callbacks.port(port);
    if (fdb_parse(message, &record))
        callbacks.fdb(record);
}

} // namespace

void monitor_tell(std::span<const std::byte> datagram, const monitor_callbacks &callbacks) {
    message_reader messages(datagram);
    while (const nlmsghdr *message = messages.next())
        tell(*message, callbacks);
}

int kernel_monitor::open() {
    fd_.reset(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    if (!fd_)
        return errno;
    enlarge_buffer(fd_.get());
    if (keep_bridges(fd_.get()) == 0 && join_groups(fd_.get()) == 0)
        return 0;
    const int result = errno;
    fd_.reset();
    return result;
}

int kernel_monitor::receive(const monitor_callbacks &callbacks) {
    alignas(NLMSG_ALIGNTO) std::array<std::byte, DATAGRAM_SIZE> datagram;
    for (int turn = 0; turn < DATAGRAMS_PER_TURN; turn++) {
        sockaddr_nl sender{};
        socklen_t sender_size = sizeof sender;
        const ssize_t size = recvfrom(fd_.get(), datagram.data(), datagram.size(), MSG_TRUNC,
                                      reinterpret_cast<sockaddr *>(&sender), &sender_size);
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0 && errno == EAGAIN)
            return 0;
        if (size < 0 && errno != ENOBUFS)
            return errno;
        if (size < 0 || static_cast<size_t>(size) > datagram.size()) { // what was in it is lost just the same
            empty_queue(fd_.get());
            return ENOBUFS;
        }
        if (sender.nl_pid != 0)
            continue; // not the kernel
        monitor_tell({datagram.data(), static_cast<size_t>(size)}, callbacks);
    }
    return 0;
}
