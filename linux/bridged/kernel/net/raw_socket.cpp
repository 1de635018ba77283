// The socket below the bridge.
#include "kernel/net/raw_socket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/pkt_sched.h>
#include <sys/socket.h>
#include <sys/types.h>

namespace {

int join_group(int fd, uint32_t ifindex) {
    packet_mreq membership{};
    membership.mr_ifindex = static_cast<int>(ifindex);
    membership.mr_type = PACKET_MR_MULTICAST;
    membership.mr_alen = sizeof NEIGHBOUR_GROUP;
    memcpy(membership.mr_address, NEIGHBOUR_GROUP, sizeof NEIGHBOUR_GROUP);
    return setsockopt(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &membership, sizeof membership);
}

// Ahead of what the interface's queue holds of users' frames, where the queue tells them apart.
int set_priority(int fd) {
    const int priority = TC_PRIO_CONTROL;
    return setsockopt(fd, SOL_SOCKET, SO_PRIORITY, &priority, sizeof priority);
}

// Frames to others, those longer than any neighbour's, and what was sent here, stay in the kernel. A frame with a VLAN
// tag looks like one without when the kernel has taken the tag off; it counts as another host's then.
int keep_neighbours(int fd) {
    uint32_t front = 0; // of the address
    uint16_t rest = 0;
    memcpy(&front, NEIGHBOUR_GROUP, sizeof front);
    memcpy(&rest, NEIGHBOUR_GROUP + sizeof front, sizeof rest);
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_LEN, 0),
        BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, NEIGHBOUR_FRAME_MAX, 7, 0),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohl(front), 0, 5),
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, sizeof front),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohs(rest), 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PACKET_MULTICAST, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, UINT32_MAX),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog program{.len = sizeof code / sizeof *code, .filter = code};
    return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
}

// Only from here on frames come in: a socket that is opened for an EtherType hears all interfaces until it is bound.
int bind_to(int fd, uint32_t ifindex) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(NEIGHBOUR_ETHERTYPE);
    address.sll_ifindex = static_cast<int>(ifindex);
    return bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

} // namespace

int raw_socket::open(uint32_t ifindex) {
    fd_.reset();
    if (ifindex == 0) // would be every interface
        return ENODEV;
    unique_fd fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd)
        return errno;
    if (set_priority(fd.get()) != 0 || keep_neighbours(fd.get()) != 0 || join_group(fd.get(), ifindex) != 0 ||
        bind_to(fd.get(), ifindex) != 0)
        return errno;
    fd_ = std::move(fd);
    return 0;
}

void raw_socket::close() {
    fd_.reset();
}

int raw_socket::send(std::span<const uint8_t> frame) const {
    ssize_t sent = 0;
    do
        sent = ::send(fd_.get(), frame.data(), frame.size(), 0);
    while (sent < 0 && errno == EINTR);
    return sent < 0 ? errno : 0;
}

int raw_socket::receive(std::span<uint8_t> frame, size_t *size) const {
    while (true) {
        const ssize_t received = recv(fd_.get(), frame.data(), frame.size(), MSG_TRUNC);
        if (received < 0 && errno == EINTR)
            continue;
        if (received < 0)
            return errno;
        *size = static_cast<size_t>(received);
        if (*size >= ETH_HLEN && *size <= frame.size())
            return 0;
    }
}
