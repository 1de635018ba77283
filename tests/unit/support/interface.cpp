// Interfaces for the unit tests, made by talking route netlink.
#include "support/sandbox.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
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

// A request about an interface to the kernel. It uses bare system calls, since tests put fakes in the place of sockets.
class link_request {
public:
    link_request(uint16_t type, uint16_t flags) {
        const nlmsghdr header{0, type, static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags), 0, 0};
        bytes_.append(reinterpret_cast<const char *>(&header), sizeof header);
    }

    link_request &link(uint32_t index, unsigned flags = 0) {
        const ifinfomsg link{AF_UNSPEC, 0, 0, static_cast<int>(index), flags, flags};
        bytes_.append(reinterpret_cast<const char *>(&link), sizeof link);
        return *this;
    }

    link_request &add(uint16_t kind, const void *value, size_t size) {
        const size_t place = begin(kind);
        bytes_.append(static_cast<const char *>(value), size);
        end(place);
        return *this;
    }
    link_request &text(uint16_t kind, const std::string &value) {
        return add(kind, value.c_str(), value.size() + 1);
    }

    // What is added between the two is inside the attribute.
    size_t begin(uint16_t kind) {
        const rtattr header{0, kind};
        bytes_.append(reinterpret_cast<const char *>(&header), sizeof header);
        return bytes_.size() - sizeof header;
    }
    void end(size_t place) {
        const auto size = static_cast<uint16_t>(bytes_.size() - place);
        memcpy(bytes_.data() + place, &size, sizeof size);
        bytes_.resize(NLMSG_ALIGN(bytes_.size()));
    }

    // Returns 0, or the error's number.
    int send() {
        const auto size = static_cast<uint32_t>(bytes_.size());
        memcpy(bytes_.data(), &size, sizeof size);
        const auto fd = static_cast<int>(syscall(SYS_socket, AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
        if (fd < 0)
            return errno;
        struct {
            nlmsghdr header;
            nlmsgerr result;
            char request[1024];
        } reply{};
        const bool answered = syscall(SYS_sendto, fd, bytes_.data(), bytes_.size(), 0, nullptr, 0) >= 0 &&
                              syscall(SYS_recvfrom, fd, &reply, sizeof reply, 0, nullptr, nullptr) >= 0;
        const int error = answered ? -reply.result.error : errno;
        close(fd);
        return error;
    }

private:
    std::string bytes_;
};

// Too small for IPv6, so that the other end sends nothing of its own accord; enough for the frames of the tests.
constexpr uint32_t PEER_MTU = 1200;

// Every kernel that the simulated node can run on has this kind of interface. It comes in pairs; what a test sees of
// the other one is a name and an index that no test uses, and that the next interface gets the next index all the same.
int make_pair(const std::string &name, uint32_t index, const std::string &peer, uint32_t peer_index) {
    link_request request(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    request.link(index).text(IFLA_IFNAME, name);
    const size_t info = request.begin(IFLA_LINKINFO);
    request.text(IFLA_INFO_KIND, "veth");
    const size_t data = request.begin(IFLA_INFO_DATA);
    const size_t other = request.begin(VETH_INFO_PEER);
    request.link(peer_index).text(IFLA_IFNAME, peer).add(IFLA_MTU, &PEER_MTU, sizeof PEER_MTU);
    request.end(other);
    request.end(data);
    request.end(info);
    return request.send();
}

int set_up(const std::string &name) {
    return link_request(RTM_SETLINK, 0).link(0, IFF_UP).text(IFLA_IFNAME, name).send();
}

// The other end comes first: then this one has a carrier from the start, and frames are not dropped.
int make_interface(const std::string &name, uint32_t index) {
    static uint32_t peers = 0x7A000000;
    const std::string peer = "peer-" + std::to_string(++peers);
    int error = make_pair(name, index, peer, peers);
    if (error == 0)
        error = set_up(peer);
    if (error == 0)
        error = set_up(name);
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
    link_request(RTM_DELLINK, 0).link(0).text(IFLA_IFNAME, name_).send();
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

// The kernel renames only what is down.
void test_interface::rename(const std::string &name) {
    ifreq request = request_for(name_);
    control(SIOCSIFFLAGS, &request);
    request = request_for(name_);
    strncpy(request.ifr_newname, name.c_str(), IFNAMSIZ - 1);
    control(SIOCSIFNAME, &request);
    name_ = name;
    if (const int error = set_up(name_); error != 0)
        throw std::runtime_error("cannot set up interface " + name_ + ": " + strerror(error));
}
