// Interfaces for the unit tests.
#include "support/links.h"
#include "support/sandbox.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// The other end comes first: then this one has a carrier from the start, and frames are not dropped.
int make_interface(const std::string &name, uint32_t index) {
    static uint32_t peers = 0x7A000000;
    const std::string peer = "peer-" + std::to_string(++peers);
    int error = link_make_pair({name, index}, {peer, peers});
    if (error == 0)
        error = link_set_up(peer);
    if (error == 0)
        error = link_set_up(name);
    return error;
}

// A socket that sees what goes through the interface.
int listen_to(const std::string &name) {
    const auto fd =
        static_cast<int>(syscall(SYS_socket, AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ALL)));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(name.c_str()));
    if (fd < 0 || syscall(SYS_bind, fd, &address, sizeof address) != 0)
        throw std::runtime_error("cannot listen to interface " + name + ": " + strerror(errno));
    return fd;
}

ifreq request_for(const std::string &name) {
    ifreq request{};
    strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
    return request;
}

void control(unsigned long what, ifreq *request) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int result = ioctl(fd, what, request);
    close(fd);
    if (result != 0)
        throw std::runtime_error(std::string("interface ioctl: ") + strerror(errno));
}

} // namespace

test_interface::test_interface(const std::string &name, uint32_t index) : name_(name) {
    if (const int error = make_interface(name, index); error != 0)
        throw std::runtime_error("cannot make interface " + name + ": " + strerror(error));
    socket_ = listen_to(name);
}

test_interface::test_interface(test_interface &&other) noexcept
    : name_(std::move(other.name_)), socket_(other.socket_) {
    other.socket_ = -1;
}

// Its own descriptor is closed first, so that the request gets one while a test leaves none.
test_interface::~test_interface() {
    if (socket_ < 0)
        return;
    close(socket_);
    link_remove(name_);
}

const std::string &test_interface::name() const {
    return name_;
}

uint32_t test_interface::index() const {
    return if_nametoindex(name_.c_str());
}

std::string test_interface::sent_frame(uint16_t ethertype) const {
    pollfd watched{socket_, POLLIN, 0};
    while (poll(&watched, 1, 1000) == 1) {
        char frame[4096];
        sockaddr_ll from{};
        socklen_t from_size = sizeof from;
        const ssize_t size = syscall(SYS_recvfrom, socket_, frame, sizeof frame, 0, &from, &from_size);
        if (size > 13 && from.sll_pkttype == PACKET_OUTGOING && static_cast<uint8_t>(frame[12]) == ethertype >> 8 &&
            static_cast<uint8_t>(frame[13]) == (ethertype & 0xFF))
            return {frame, static_cast<size_t>(size)};
    }
    return {};
}

void test_interface::set_mac(const uint8_t *mac) {
    ifreq request = request_for(name_);
    request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    memcpy(request.ifr_hwaddr.sa_data, mac, 6);
    control(SIOCSIFHWADDR, &request);
}

void test_interface::rename(const std::string &name) {
    int error = link_rename(name_, name);
    if (error == 0)
        error = link_set_up(name);
    if (error != 0)
        throw std::runtime_error("cannot rename interface " + name_ + ": " + strerror(error));
    name_ = name;
}
